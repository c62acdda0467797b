# Warnings and sanitizers for our own targets; third-party sources do not link this.
add_library(orv_build_options INTERFACE)
add_library(orv::build_options ALIAS orv_build_options)
target_compile_options(orv_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef)
if(ORV_WERROR)
  target_compile_options(orv_build_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # False alarms of g++ 12 in inlined standard containers, at -O2 and with sanitizers.
  target_compile_options(orv_build_options INTERFACE
    -Wno-restrict -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-dangling-pointer>)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # g++ 12's library calls what it has marked as deprecated, in std::stable_sort, and clang tells that as ours.
  target_compile_options(orv_build_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-deprecated-declarations>)
endif()

# Sources compiled together (CONTRIBUTING.md says where and why) see each other's names; what these warnings are for is
# found where each is compiled alone.
if(CMAKE_UNITY_BUILD)
  target_compile_options(orv_build_options INTERFACE -Wno-shadow
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
endif()

if(ORV_SANITIZE)
  set(ORV_SANITIZE_OPTIONS -fsanitize=${ORV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # Fuzz targets need them where their inputs go, and leave the other half of the time to compile.
  if(NOT ORV_FUZZ)
    add_compile_options(${ORV_SANITIZE_OPTIONS})
  endif()
  add_link_options(-fsanitize=${ORV_SANITIZE})
endif()
