// A feature of a module through the register that its document names.
#pragma once

#include <gentl_producer/Modules.h>

#include <gtest/gtest.h>

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace fake {

// T is as wide as the register.
template <class T>
class feature {
public:
    feature(GenTL::Producer::IPort& with, std::string_view name) : port(with) {
        std::string list(4096, '\0');
        size_t size = list.size();
        EXPECT_FALSE(port.GetURL(list.data(), &size).failed());
        unsigned long at = 0;
        unsigned long length = 0;
        EXPECT_EQ(std::sscanf(std::strchr(list.c_str(), ';'), ";%lx;%lx", &at, &length), 2);
        std::string text(length, '\0');
        size = length;
        EXPECT_FALSE(port.Read(at, text.data(), &size).failed());
        pugi::xml_document xml;
        EXPECT_TRUE(xml.load_buffer(text.data(), text.size()));
        const auto node = xml.find_node([&](const pugi::xml_node& candidate) {
            const std::string_view found = candidate.attribute("Name").value();
            return (found == std::string{name} + "_Register" || found == std::string{name} + "Register") &&
                   candidate.child("Address");
        });
        EXPECT_TRUE(node) << name;
        address = std::strtoull(node.child("Address").text().get(), nullptr, 0);
    }
    [[nodiscard]] T get() const {
        T value = 99;
        size_t size = sizeof value;
        EXPECT_FALSE(port.Read(address, &value, &size).failed());
        return value;
    }
    void set(T value) const { EXPECT_TRUE(takes(value)); }
    [[nodiscard]] bool takes(T value) const {
        size_t size = sizeof value;
        return !port.Write(address, &value, &size).failed();
    }

private:
    GenTL::Producer::IPort& port;
    uint64_t address = 0;
};

} // namespace fake
