#include <loaded_file/loaded_file.h>
#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace fs = std::filesystem;
using loaded_file::path_of;

TEST(LoadedFile, OfTheProgram) {
    static const char here = 1;
    EXPECT_EQ(path_of(&here), fs::read_symlink("/proc/self/exe"));
    const auto elsewhere = std::make_unique<char>();
    EXPECT_EQ(path_of(elsewhere.get()), "") << "no file";
}

// By a link, and by a name that says something else from the next directory on.
TEST(LoadedFile, OfALibraryByARelativeName) {
    const test_support::temporary_folder folder;
    const fs::path file = fs::canonical(folder.path) / "a library.so", before = fs::current_path();
    fs::copy_file(PROBE, file);
    fs::create_symlink(file, folder.path / "link.so");
    fs::current_path(folder.path);
    void* const library = dlopen("./link.so", RTLD_NOW | RTLD_LOCAL);
    fs::current_path(before);
    ASSERT_NE(library, nullptr) << dlerror();
    const void* const probe = dlsym(library, "probe");
    EXPECT_EQ(path_of(probe), file);
    fs::remove(file);
    EXPECT_EQ(path_of(probe), file) << "an upgrade takes the file away";
    dlclose(library);
}

TEST(LoadedFile, WithoutADescriptor) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer itself looks at streams through pipes";
#endif
    static const char here = 1;
    void* const library = dlopen(PROBE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    rlimit enough{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &enough), 0);
    const rlimit none{0, enough.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const std::string path = path_of(dlsym(library, "probe")), program = path_of(&here);
    setrlimit(RLIMIT_NOFILE, &enough);
    EXPECT_EQ(path, fs::canonical(PROBE));
    EXPECT_EQ(program, "") << "all that is left is what its caller called it";
    dlclose(library);
}

TEST(LoadedFile, WithoutTheMainThread) {
    static const char here = 1;
    const auto last_thread = [] {
        while (std::ifstream{"/proc/self/maps"}.peek() != EOF) std::this_thread::yield();
        _exit(path_of(&here).empty() ? 1 : 0);
    };
    EXPECT_EXIT((alarm(30), std::thread{last_thread}.detach(), syscall(SYS_exit, 0)), testing::ExitedWithCode(0), "");
}
