// Ten pictures from the first camera:  gentl_grab /path/to/producer.cti
#include "gentl_calls.h"

#include <cstdio>

using namespace GenTL;

static void grab() {
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE new_buffer = nullptr;
    char id[1024];
    size_t size = sizeof id;
    uint32_t interfaces = 0, devices = 0;
    CALL(TLOpen, &system);
    CALL(TLUpdateInterfaceList, system, nullptr, uint64_t{1000});
    CALL(TLGetNumInterfaces, system, &interfaces);
    for (uint32_t i = 0; i < interfaces && devices == 0; ++i, size = sizeof id) {
        if (interface != nullptr) CALL(IFClose, interface);
        CALL(TLGetInterfaceID, system, i, id, &size);
        CALL(TLOpenInterface, system, id, &interface);
        CALL(IFUpdateDeviceList, interface, nullptr, uint64_t{1000});
        CALL(IFGetNumDevices, interface, &devices);
    }
    if (devices == 0) throw std::runtime_error("There is no camera.");
    CALL(IFGetDeviceID, interface, 0U, id, &size);
    CALL(IFOpenDevice, interface, id, DEVICE_ACCESS_CONTROL, &device);
    CALL(DevGetPort, device, &port);
    const gentl::features camera{port};
    CALL(DevGetDataStreamID, device, 0U, id, &(size = sizeof id));
    CALL(DevOpenDataStream, device, id, &stream);
    for (int i = 0; i < 8; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        CALL(DSAllocAndAnnounceBuffer, stream, static_cast<size_t>(camera.integer("PayloadSize")), nullptr, &buffer);
        CALL(DSQueueBuffer, stream, buffer);
    }
    CALL(GCRegisterEvent, stream, EVENT_NEW_BUFFER, &new_buffer);
    CALL(DSStartAcquisition, stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    camera.execute("AcquisitionStart");
    for (int i = 0; i < 10; ++i) {
        EVENT_NEW_BUFFER_DATA ready{};
        INFO_DATATYPE type = 0;
        uint64_t frame = 0;
        bool8_t incomplete = 0;
        CALL(EventGetData, new_buffer, &ready, &(size = sizeof ready), uint64_t{5000});
        CALL(DSGetBufferInfo, stream, ready.BufferHandle, BUFFER_INFO_FRAMEID, &type, &frame, &(size = sizeof frame));
        CALL(DSGetBufferInfo, stream, ready.BufferHandle, BUFFER_INFO_IS_INCOMPLETE, &type, &incomplete, &(size = 1));
        std::printf("frame %llu %s\n", static_cast<unsigned long long>(frame), incomplete ? "incomplete" : "complete");
        CALL(DSQueueBuffer, stream, ready.BufferHandle); // BUFFER_INFO_BASE has the pixels until here
    }
    camera.execute("AcquisitionStop");
    CALL(DSStopAcquisition, stream, ACQ_STOP_FLAGS_DEFAULT);
    CALL(TLClose, system); // closes what is open below it
}

int main(int count, char** arguments) {
    gentl::library = count == 2 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
    if (gentl::library == nullptr) return std::fprintf(stderr, "usage: gentl_grab PRODUCER.cti\n"), 2;
    try {
        CALL(GCInitLib);
        grab();
        CALL(GCCloseLib);
    } catch (const std::exception& reason) {
        return std::fprintf(stderr, "%s\n", reason.what()), 1;
    }
}
