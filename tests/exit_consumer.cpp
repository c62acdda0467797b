// A consumer that ends in the way its arguments say: <library> <camera's serial> <what is open> <who closes>.
// Prints what the closing call answered. Nothing here is ever destroyed by itself.
#include <cli/gentl_library.h>
#include <cli/node_map.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

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
template <class T>
std::shared_ptr<T> keep(std::shared_ptr<T> object) {
    static auto& kept = *new std::vector<std::shared_ptr<const void>>;
    kept.push_back(object);
    return object;
}

void open(const char* cti, const std::string& serial, const std::string& what) {
    const auto lib = keep(std::make_shared<const cli::gentl_library>(cti));
    library = lib.get();
    if (what == "nothing") return;
    const auto system = keep(cli::open_system(lib));
    if (what == "system") return;
    std::shared_ptr<const cli::tl_device> device;
    for (int attempt = 0; attempt < 100 && !device; ++attempt) {
        for (const auto& entry : cli::list_interfaces(*system)) {
            const auto interface = cli::open_interface(system, entry.id);
            for (const auto& listed : cli::list_devices(*lib, *interface, entry.id, 200)) {
                if (listed.serial == serial) {
                    device = keep(cli::open_device(*lib, keep(interface), listed.id, DEVICE_ACCESS_CONTROL));
                }
            }
            if (device) break;
        }
    }
    if (!device) throw std::runtime_error("no camera");
    PORT_HANDLE port = nullptr;
    lib->check("DevGetPort", lib->DevGetPort(device->get(), &port));
    auto& nodes = *new cli::node_map(*lib, port);
    DS_HANDLE stream = nullptr;
    lib->check("DevOpenDataStream", lib->DevOpenDataStream(device->get(), "Stream0", &stream));
    for (int i = 0; i < 6; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        const auto size = static_cast<size_t>(cli::require_integer(nodes, "PayloadSize"));
        lib->check("DSAllocAndAnnounceBuffer", lib->DSAllocAndAnnounceBuffer(stream, size, nullptr, &buffer));
    }
    EVENT_HANDLE frames = nullptr;
    EVENT_HANDLE errors = nullptr;
    lib->check("GCRegisterEvent", lib->GCRegisterEvent(stream, EVENT_NEW_BUFFER, &frames));
    lib->check("GCRegisterEvent", lib->GCRegisterEvent(device->get(), EVENT_ERROR, &errors));
    lib->check("DSFlushQueue", lib->DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT));
    lib->check("DSStartAcquisition", lib->DSStartAcquisition(stream, 0, GENTL_INFINITE));
    cli::execute(cli::require_node(nodes, "AcquisitionStart"));

    // One thread takes frames, one waits for what never comes, one asks without end: also after the last handler.
    static std::atomic<int> received{0};
    std::thread{[lib, stream, frames] {
        for (;;) {
            EVENT_NEW_BUFFER_DATA event{};
            size_t size = sizeof event;
            if (lib->EventGetData(frames, &event, &size, GENTL_INFINITE) != GC_ERR_SUCCESS) pause();
            lib->DSQueueBuffer(stream, event.BufferHandle);
            ++received;
        }
    }}.detach();
    std::thread{[lib, errors] {
        char record[260];
        size_t size = sizeof record;
        lib->EventGetData(errors, record, &size, GENTL_INFINITE);
        pause();
    }}.detach();
    std::thread{[lib, stream] {
        for (;;) {
            INFO_DATATYPE type = 0;
            size_t value = 0;
            size_t size = sizeof value;
            lib->DSGetInfo(stream, STREAM_INFO_PAYLOAD_SIZE, &type, &value, &size);
            lib->GCGetInfo(TL_INFO_ID, &type, nullptr, &size);
        }
    }}.detach();
    for (int i = 0; i < 1000 && received < 5; ++i) usleep(10000);
    if (received < 5) throw std::runtime_error("no frame");
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
