// Exported functions of the data stream module and its buffers.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API DSClose(DS_HANDLE hDataStream) {
    return handle_call<IDataStream>(
        "GenTL::DSClose", ORV_HERE, hDataStream, ORV_ARGS(ORV_ARG(hDataStream)),
        [&](IDataStream& object) {
            return modules_are_parents() ? success() : object.parent_device().OnDataStreamClosed(&object);
        },
        no_args);
}

GC_API DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) {
    return handle_call<IDataStream>(
        "GenTL::DSAllocAndAnnounceBuffer", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(iSize), ORV_ARG(pPrivate), ORV_ARG(phBuffer)),
        [&](IDataStream& object) { return object.AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer); },
        ORV_ARGS(ORV_OUT(phBuffer)));
}

GC_API DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) {
    return handle_call<IDataStream>(
        "GenTL::DSAnnounceBuffer", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(pBuffer), ORV_ARG(iSize), ORV_ARG(pPrivate), ORV_ARG(phBuffer)),
        [&](IDataStream& object) { return object.AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer); },
        ORV_ARGS(ORV_OUT(phBuffer)));
}

GC_API DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation) {
    return handle_call<IDataStream>(
        "GenTL::DSFlushQueue", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ENUM(ACQ_QUEUE_TYPE, iOperation)),
        [&](IDataStream& object) { return object.FlushQueue(iOperation); }, no_args);
}

GC_API DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA* pChunkData,
                            size_t* piNumChunks) {
    return handle_call<IDataStream>(
        "GenTL::DSGetBufferChunkData", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer), ORV_ARG(static_cast<void*>(pChunkData)), ORV_ARG(piNumChunks)),
        [&](IDataStream& object) { return object.GetBufferChunkData(hBuffer, pChunkData, piNumChunks); },
        ORV_ARGS(ORV_OUT(piNumChunks)));
}

GC_API DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer) {
    return handle_call<IDataStream>(
        "GenTL::DSGetBufferID", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(iIndex), ORV_ARG(phBuffer)),
        [&](IDataStream& object) { return object.GetBufferID(iIndex, phBuffer); }, ORV_ARGS(ORV_OUT(phBuffer)));
}

GC_API DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                       void* pBuffer, size_t* piSize) {
    return handle_call<IDataStream>(
        "GenTL::DSGetBufferInfo", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer), ORV_ENUM(BUFFER_INFO_CMD, iInfoCmd), ORV_ARG(piType),
                 ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IDataStream& object) { return object.GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API DSGetBufferInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED* pInfoStacked,
                              size_t iNumInfos) {
    return handle_call<IDataStream>(
        "GenTL::DSGetBufferInfoStacked", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer),
                 ORV_ARG(Debug::dump_buffer(pInfoStacked, iNumInfos * sizeof(DS_BUFFER_INFO_STACKED)))),
        [&](IDataStream& object) { return object.GetBufferInfoStacked(hBuffer, pInfoStacked, iNumInfos); },
        ORV_ARGS(ORV_ARG(Debug::dump_buffer(pInfoStacked, iNumInfos * sizeof(DS_BUFFER_INFO_STACKED)))));
}

GC_API DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                 size_t* piSize) {
    return handle_call<IDataStream>(
        "GenTL::DSGetInfo", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ENUM(STREAM_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer),
                 ORV_ARG(piSize)),
        [&](IDataStream& object) { return object.GetInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice) {
    return handle_call<IDataStream>(
        "GenTL::DSGetParentDev", ORV_HERE, hDataStream, ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(phDevice)),
        [&](IDataStream& object) { return object.GetParentDev(phDevice); }, ORV_ARGS(ORV_OUT(phDevice)));
}

GC_API DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer) {
    return handle_call<IDataStream>(
        "GenTL::DSQueueBuffer", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer)),
        [&](IDataStream& object) { return object.QueueBuffer(hBuffer); }, no_args);
}

GC_API DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** ppBuffer, void** ppPrivate) {
    return handle_call<IDataStream>(
        "GenTL::DSRevokeBuffer", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer), ORV_ARG(ppBuffer), ORV_ARG(ppPrivate)),
        [&](IDataStream& object) { return object.RevokeBuffer(hBuffer, ppBuffer, ppPrivate); },
        ORV_ARGS(ORV_OUT(ppBuffer), ORV_OUT(ppPrivate)));
}

GC_API DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire) {
    return handle_call<IDataStream>(
        "GenTL::DSStartAcquisition", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ENUM(ACQ_START_FLAGS, iStartFlags), ORV_ARG(iNumToAcquire)),
        [&](IDataStream& object) { return object.StartAcquisition(iStartFlags, iNumToAcquire); }, no_args);
}

GC_API DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags) {
    return handle_call<IDataStream>(
        "GenTL::DSStopAcquisition", ORV_HERE, hDataStream,
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ENUM(ACQ_STOP_FLAGS, iStopFlags)),
        [&](IDataStream& object) { return object.StopAcquisition(iStopFlags); }, no_args);
}

} // namespace GenTL
