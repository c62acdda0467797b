// How long the first access to a module's port takes: register map, document and its text. One line per module, the
// median of many fresh objects.
#include "fake_modules.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

template <class Make>
void measure(const char* name, Make&& make) {
    std::vector<double> times;
    size_t length = 0;
    for (int i = 0; i < 101; ++i) {
        auto module = make();
        char url[256] = {};
        size_t size = sizeof url;
        const auto begin = std::chrono::steady_clock::now();
        if (module->GetURL(url, &size).failed()) return;
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
        unsigned long long address = 0;
        unsigned long long bytes = 0;
        std::sscanf(std::strchr(url, ';'), ";%llX;%llX", &address, &bytes);
        length = bytes;
    }
    std::ranges::nth_element(times, times.begin() + 50);
    fmt::print("| {:<10} | {:>14} | {:>10.3f} |\n", name, length, times[50]);
}

} // namespace

int main() {
    fake::system system;
    static_cast<void>(system.UpdateInterfaceList(nullptr, 0).failed());
    fake::interface interface { system, system.interfaces[0], system.devices };
    static_cast<void>(interface.UpdateDeviceList(nullptr, 0).failed());
    const auto device = std::make_shared<fake::device>(interface, system.devices[0], GenTL::DEVICE_ACCESS_CONTROL);
    fmt::print("| module     | document bytes | build (ms) |\n|---|---|---|\n");
    measure("system", [] { return std::make_unique<fake::system>(); });
    measure("interface",
            [&] { return std::make_unique<fake::interface>(system, system.interfaces[0], system.devices); });
    measure("device",
            [&] { return std::make_shared<fake::device>(interface, system.devices[0], GenTL::DEVICE_ACCESS_CONTROL); });
    measure("stream", [&] { return std::make_unique<fake::stream>(*device); });
    return 0;
}
