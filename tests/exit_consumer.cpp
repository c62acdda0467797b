// A consumer that ends in the way its arguments say: <library> <camera's serial> <what is open> <who closes>.
// Prints what the closing call answered. Nothing here is ever destroyed by itself.
#include "support/test_system.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include <dlfcn.h>

using namespace GenTL;

namespace {

std::string closer;
const cli::gentl_library* library = nullptr;

void close_late(const char* who) {
    if (closer != who || library == nullptr) return;
    const GC_ERROR code = library->GCCloseLib();
    std::printf("closed by %s: %d\n", who, code);
    std::fflush(stdout);
}

// Destroyed by exit(), after every handler that is registered later.
struct global {
    ~global() { close_late("global"); }
} made_before_main;

// What is open stays open to the very end: never destroyed, but still reachable.
void open(const char* cti, const std::string& serial, const std::string& what) {
    if (what != "stream") {
        static const auto& lib = *new std::shared_ptr<const cli::gentl_library>{new cli::gentl_library{cti}};
        library = lib.get();
        if (what == "nothing") return;
        [[maybe_unused]] static const auto& system = *new auto{cli::open_system(lib)};
        return;
    }
    static auto& camera = *new test_support::open_camera{serial, cti};
    library = camera.lib.get();
    const EVENT_HANDLE errors = camera.event_of(camera.device->get(), EVENT_ERROR);
    camera.start();

    // One thread takes frames, one waits for what never comes, one asks without end: also after the last handler.
    static std::atomic<int> received{0};
    std::thread{[] {
        try {
            while (camera.next_frame(GENTL_INFINITE)) ++received;
        } catch (const std::exception&) { // the library has closed between two calls
        }
        pause();
    }}.detach();
    std::thread{[errors] {
        char record[260];
        size_t size = sizeof record;
        library->EventGetData(errors, record, &size, GENTL_INFINITE);
        pause();
    }}.detach();
    std::thread{[] {
        for (;;) {
            INFO_DATATYPE type = 0;
            size_t value = 0;
            size_t size = sizeof value;
            library->DSGetInfo(camera.stream->get(), STREAM_INFO_PAYLOAD_SIZE, &type, &value, &size);
            library->GCGetInfo(TL_INFO_ID, &type, nullptr, &size);
        }
    }}.detach();
    if (!test_support::eventually([] { return received >= 5; })) throw std::runtime_error("no frame");
}

} // namespace

int main(int count, char** arguments) {
    if (count != 5) return 2;
    closer = arguments[4];
    std::atexit([] { close_late("early handler"); });
    try {
        open(arguments[1], arguments[2], arguments[3]);
    } catch (const std::exception& failure) {
        std::printf("%s\n", failure.what());
        std::fflush(stdout);
        _exit(3);
    }
    std::atexit([] { close_late("late handler"); });
    static const std::string file = arguments[1];
    std::atexit([] {
        if (closer != "unloading") return;
        void* loaded = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
        dlclose(loaded);
        dlclose(loaded); // the reference that open() took
    });
    std::printf("ends\n");
    std::fflush(stdout);
    std::exit(0);
}
