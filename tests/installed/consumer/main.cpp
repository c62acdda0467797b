// A program of somebody else's that uses the published GenICam engine.
#include <GenICam/IGenICamDoc.h>
#include <GenICam/zip.h>

#include <cstdio>
#include <string_view>

int main() {
    constexpr std::string_view text = R"(<RegisterDescription ModelName="m" VendorName="v">
        <Category Name="Root"><pFeature>Twice</pFeature></Category>
        <IntSwissKnife Name="Twice"><pVariable Name="A">Base</pVariable><Formula>2 * A</Formula></IntSwissKnife>
        <Integer Name="Base"><Value>21</Value></Integer>
    </RegisterDescription>)";
    if (GenICam::zip_archive::open({})) return 4;
    const auto document = GenICam::create_document(text);
    if (!document) return 1;
    auto* node = document->find<GenICam::IInteger>("Twice");
    if (node == nullptr) return 2;
    const auto value = node->get_val(0);
    std::printf("%lld\n", value ? static_cast<long long>(*value) : -1);
    return value && *value == 42 ? 0 : 3;
}
