// Calls into a GenTL producer that is loaded by its path, and the features of a camera behind it.
#pragma once

#include <GenICam/IGenICamDoc.h>
#include <GenICam/document_url.h>
#include <GenICam/zip.h>
#include <gentl/GenTL.h>

#include <dlfcn.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace gentl {

inline void* library = nullptr; // from dlopen

// Each function is looked up by its name. What the producer says of a failure is thrown.
template <class Function, class... Arguments>
void call(const char* name, Arguments... arguments) {
    auto* const function = reinterpret_cast<Function*>(dlsym(library, name));
    if (function == nullptr) throw std::runtime_error(std::string{name} + " is missing");
    if (function(arguments...) == GenTL::GC_ERR_SUCCESS) return;
    GenTL::GC_ERROR code = 0;
    char text[1024] = "";
    size_t size = sizeof text;
    const auto last = reinterpret_cast<decltype(&GenTL::GCGetLastError)>(dlsym(library, "GCGetLastError"));
    if (last != nullptr) last(&code, text, &size);
    throw std::runtime_error(std::string{name} + ": " + text);
}
#define CALL(function, ...) gentl::call<decltype(GenTL::function)>(#function __VA_OPT__(, ) __VA_ARGS__)

// A camera's document, read through its port. The port must stay open for as long as this lives.
class features final : GenICam::IDevicePort {
public:
    explicit features(GenTL::PORT_HANDLE device_port) : port(device_port) {
        char text[1024];
        size_t size = sizeof text;
        GenTL::INFO_DATATYPE type = 0;
        CALL(GCGetPortURLInfo, port, 0U, GenTL::URL_INFO_URL, &type, text, &size);
        const GenICam::document_url url = GenICam::parse_document_url(text);
        if (url.scheme != GenICam::url_scheme::local || url.size > GenICam::largest_document)
            throw std::runtime_error("No document at " + url.url);
        std::string xml(url.size, '\0');
        size = xml.size();
        CALL(GCReadPort, port, url.address, xml.data(), &size);
        document = GenICam::create_document(GenICam::document_text(std::move(xml)).value());
        if (!document || get<GenICam::IPort>("Device").bind(this, 0)) throw std::runtime_error("No document");
    }
    template <class T>
    T& get(const char* name) const {
        T* const node = document->find<T>(name);
        return node != nullptr ? *node : throw std::runtime_error(std::string{name} + ": no such feature");
    }
    [[nodiscard]] int64_t integer(const char* name) const { return get<GenICam::IInteger>(name).get_val(0).value(); }
    void execute(const char* name) const {
        if (const auto error = get<GenICam::ICommand>(name).execute(0)) throw std::system_error(error, name);
    }

private:
    GenICam::result<size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        size_t size = data.size();
        CALL(GCReadPort, port, static_cast<uint64_t>(address), data.data(), &size);
        return size;
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        size_t size = data.size();
        CALL(GCWritePort, port, static_cast<uint64_t>(address), data.data(), &size);
        return {};
    }

    GenTL::PORT_HANDLE port;
    std::unique_ptr<GenICam::IGenICamDoc> document;
};

} // namespace gentl
