// One walk over the children of an XML element, so that a node is built without a search per property.
#pragma once

#include <pugixml.hpp>

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace GenICam::impl {

// clang-format off
#define GENICAM_ELEMENT_NAMES(X)                                                                                       \
    X(AccessMode)                                                                                                      \
    X(Address)                                                                                                         \
    X(Bit)                                                                                                             \
    X(Boolean)                                                                                                         \
    X(CacheChunkData)                                                                                                  \
    X(Cachable)                                                                                                        \
    X(Category)                                                                                                        \
    X(ChunkID)                                                                                                         \
    X(Command)                                                                                                         \
    X(CommandValue)                                                                                                    \
    X(Constant)                                                                                                        \
    X(Converter)                                                                                                       \
    X(Endianess)                                                                                                       \
    X(EnumEntry) X(Enumeration) X(EventID) X(Expression) X(Extension) X(Float) X(FloatReg) X(Formula) X(FormulaFrom)   \
        X(FormulaTo) X(Group) X(ImposedAccessMode) X(Inc) X(IntConverter) X(Integer) X(IntReg) X(IntSwissKnife)        \
            X(IsLinear) X(IsSelfClearing) X(LSB) X(Length) X(MSB) X(MaskedIntReg) X(Max) X(Min) X(NumericValue)        \
                X(OffValue) X(OnValue) X(Port) X(Register) X(Sign) X(Slope) X(Streamable) X(String) X(StringReg)       \
                    X(StructEntry) X(StructReg) X(SwissKnife) X(ValidValueSet) X(Value) X(ValueDefault)                \
                        X(ValueIndexed) X(pAddress) X(pChunkID) X(pCommandValue) X(pFeature) X(pInc) X(pIndex)         \
                            X(pInvalidator) X(pIsAvailable) X(pIsImplemented) X(pIsLocked) X(pLength) X(pMax) X(pMin)  \
                                X(pPort) X(pSelected) X(pValue) X(pValueCopy) X(pValueDefault) X(pValueIndexed)        \
                                    X(pVariable)
// clang-format on

enum class tag : uint8_t {
#define GENICAM_TAG(name) name,
    GENICAM_ELEMENT_NAMES(GENICAM_TAG)
#undef GENICAM_TAG
        none // any other element
};
inline constexpr std::size_t tag_count = static_cast<std::size_t>(tag::none);

[[nodiscard]] tag tag_of(std::string_view element_name) noexcept;

// The first child of each name. Valid as long as the XML document; cheap enough to be made where it is needed.
class element_view {
public:
    // One child, for a view that is to be made again: that is cheaper than a second walk.
    struct found {
        pugi::xml_node_struct* child;
        tag name;
    };

    explicit element_view(pugi::xml_node element) : self(element) {
        walk([](const found&) {});
    }
    // Appends to `record` what the view holds.
    element_view(pugi::xml_node element, std::vector<found>& record) : self(element) {
        walk([&](const found& child) { record.push_back(child); });
    }
    element_view(pugi::xml_node element, std::span<const found> record) noexcept : self(element) {
        for (const found& child : record) first[static_cast<std::size_t>(child.name)] = child.child;
    }

    [[nodiscard]] pugi::xml_node element() const noexcept { return self; }
    // Null when there is no such child.
    [[nodiscard]] pugi::xml_node operator[](tag name) const noexcept {
        return pugi::xml_node{first[static_cast<std::size_t>(name)]};
    }
    [[nodiscard]] bool has(tag name) const noexcept { return first[static_cast<std::size_t>(name)] != nullptr; }

    // Calls function(xml_node) for every child of the name, in document order.
    template <class F>
    void for_each(tag name, F&& function) const {
        for (pugi::xml_node child = (*this)[name]; child; child = child.next_sibling(child.name())) function(child);
    }

private:
    template <class F>
    void walk(F&& function) {
        for (pugi::xml_node child = self.first_child(); child; child = child.next_sibling()) {
            const tag name = tag_of(child.name());
            if (name == tag::none) continue;
            pugi::xml_node_struct*& slot = first[static_cast<std::size_t>(name)];
            if (slot != nullptr) continue;
            slot = child.internal_object();
            function(found{slot, name});
        }
    }

    pugi::xml_node self;
    // The last stays null, it stands for "no such element". Bare pointers: two views are made for every node.
    std::array<pugi::xml_node_struct*, tag_count + 1> first{};
};

} // namespace GenICam::impl
