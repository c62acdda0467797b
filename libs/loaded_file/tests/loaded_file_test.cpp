#include <loaded_file/loaded_file.h>
#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <filesystem>
#include <memory>
#include <string>

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
