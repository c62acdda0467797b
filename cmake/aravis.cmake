# orv_aravis, where aravis is installed: a peer of benchmarks, and an engine of others that loads our documents in a
# test. It is found by its parts, because its own .pc file asks for development packages that using it does not need.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(ORV_GLIB QUIET IMPORTED_TARGET gobject-2.0 gio-2.0)
endif()
find_path(ORV_ARAVIS_INCLUDE arv.h PATH_SUFFIXES aravis-0.8)
find_library(ORV_ARAVIS_LIBRARY aravis-0.8)
if(ORV_GLIB_FOUND AND ORV_ARAVIS_INCLUDE AND ORV_ARAVIS_LIBRARY)
  add_library(orv_aravis INTERFACE)
  target_include_directories(orv_aravis SYSTEM INTERFACE ${ORV_ARAVIS_INCLUDE})
  target_link_libraries(orv_aravis INTERFACE ${ORV_ARAVIS_LIBRARY} PkgConfig::ORV_GLIB)
endif()
