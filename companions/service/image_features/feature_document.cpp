#include "feature_document.h"

#include "feature_writer.h"

#include <fmt/format.h>
#include <genicam_gen/writer.h>
#include <pugixml.hpp>

#include <set>
#include <utility>

namespace image_features {

namespace {

using block = gds_producer::settings_block;
using enum genicam_gen::visibility;

constexpr feature_text root_text{"SoftwareImageProcessing", "Software Image Processing",
                                 "Functions that this host applies to the camera's images, and automatic functions "
                                 "that steer the camera from here."};

void add_general(feature_writer& to, bool steers_brightness) {
    to.begin_category(root_text);
    to.flag({"SoftwareImageProcessingEnable", "Software Image Processing Enable",
             "Switches all functions of this category but the overlay, whatever their own switches say."},
            block::master_enable);
    to.flag({"SoftwareOverlay", "Software Overlay", "Writes statistics of the stream into the image."}, block::overlay);
    if (!steers_brightness) return;
    to.number({"AutoBrightnessTarget",
               "Auto Brightness Target",
               "Mean brightness of the image, of 255, that the automatic functions aim at; 0 for the standard one.",
               {},
               expert},
              block::exposure_reference);
}

void add_exposure(feature_writer& to) {
    to.begin_category({"AutoExposureControl", "Auto Exposure Control", "Automatic exposure, computed by this host."});
    if (!to.flag({"AutoExposure", "Auto Exposure", "Steers the camera's exposure time by the image's brightness."},
                 block::auto_exposure))
        return;
    to.number({"AutoExposureMinimum", "Auto Exposure Minimum", "Shortest exposure time it sets.", "us"},
              block::exposure_min);
    to.number({"AutoExposureMaximum", "Auto Exposure Maximum", "Longest exposure time it sets.", "us"},
              block::exposure_max);
    to.flag({"AutoExposureLimitByFrameRate",
             "Auto Exposure Limit By Frame Rate",
             "The longest exposure time is the period of the camera's frame rate, so that frames keep coming.",
             {},
             expert},
            block::exposure_by_frame_rate);
    to.number(
        {"AutoExposureCurrent", "Auto Exposure Current", "The camera's exposure time as last read.", "us", expert},
        block::exposure, false);
}

void add_gain(feature_writer& to) {
    to.begin_category({"AutoGainControl", "Auto Gain Control", "Automatic gain, computed by this host."});
    if (!to.flag({"AutoGain", "Auto Gain", "Steers the camera's gain by the image's brightness."}, block::auto_gain))
        return;
    to.number({"AutoGainMinimum", "Auto Gain Minimum", "Smallest gain it sets.", "dB"}, block::gain_min);
    to.number({"AutoGainMaximum", "Auto Gain Maximum", "Largest gain it sets.", "dB"}, block::gain_max);
    to.number({"AutoGainCurrent", "Auto Gain Current", "The camera's gain as last read.", "dB", expert}, block::gain,
              false);
}

void add_iris(feature_writer& to) {
    to.begin_category({"AutoIrisControl", "Auto Iris Control", "Automatic iris, computed by this host."});
    if (!to.flag({"AutoIris", "Auto Iris", "Steers the lens's iris by the image's brightness."}, block::auto_iris))
        return;
    to.number({"AutoIrisMinimum", "Auto Iris Minimum", "Smallest opening it sets."}, block::iris_min);
    to.number({"AutoIrisMaximum", "Auto Iris Maximum", "Largest opening it sets."}, block::iris_max);
    to.flag({"AutoIrisSeparate",
             "Auto Iris Separate",
             "The iris moves only where exposure and gain are at rest.",
             {},
             expert},
            block::iris_separate);
}

void add_temperatures(feature_writer& to) {
    if (!to.choice({"AutoWhiteBalanceMethod",
                    "Auto White Balance Method",
                    "How grey is found: as what the image shows to be nearly grey, or as what one of the colour "
                    "temperatures makes grey, whose gains are then used whole.",
                    {},
                    expert},
                   block::balance_by_temperature, {"GrayWorld", "ColorTemperature"}))
        return;
    to.number({"AutoColorTemperature", "Auto Color Temperature", "That of the last measured image; 0 before the first.",
               "K", expert},
              block::result_temperature, false);
    to.number({"AutoColorTemperatureMinimum", "Auto Color Temperature Minimum", "Lowest it looks at.", "K", expert},
              block::temperature_min);
    to.number({"AutoColorTemperatureMaximum", "Auto Color Temperature Maximum", "Highest it looks at.", "K", expert},
              block::temperature_max);
    const auto gain = [](std::string_view name, std::string_view display) {
        return feature_text{name, display, "Gain that makes grey of grey under the selected light.", {}, expert};
    };
    static_assert(block::light_count == 8);
    to.selected(
        {"AutoColorTemperatureLightSelector",
         "Auto Color Temperature Light Selector",
         "One of the lights whose gains were measured. They correct the gains of other temperatures, too; "
         "without any the gains are those of a camera that is balanced at 6500 K.",
         {},
         expert},
        {"Light0", "Light1", "Light2", "Light3", "Light4", "Light5", "Light6", "Light7"},
        {{{"AutoColorTemperatureLight", "Auto Color Temperature Light",
           "Temperature of the selected light; 0: there is none.", "K", expert},
          block::temperature_lights},
         {gain("AutoColorTemperatureLightRed", "Auto Color Temperature Light Red"), block::temperature_lights + 4},
         {gain("AutoColorTemperatureLightGreen", "Auto Color Temperature Light Green"), block::temperature_lights + 8},
         {gain("AutoColorTemperatureLightBlue", "Auto Color Temperature Light Blue"), block::temperature_lights + 12}},
        block::light_size, true);
}

void add_white_balance(feature_writer& to, bool in_camera) {
    to.begin_category(
        {"AutoWhiteBalanceControl", "Auto White Balance Control", "Automatic white balance, computed by this host."});
    if (!to.choice({"AutoWhiteBalance", "Auto White Balance",
                    "Makes grey of what is grey: once, going back to Off by itself, or for as long as it is on."},
                   own_register::white_balance_mode, {"Off", "Once", "Continuous"}))
        return;
    to.selected({"AutoWhiteBalanceSelector", "Auto White Balance Selector", "The colour of AutoWhiteBalanceRatio."},
                {"Red", "Green", "Blue"},
                {{{"AutoWhiteBalanceRatio", "Auto White Balance Ratio",
                   in_camera ? "The camera's gain of the selected colour as last read."
                             : "Gain of the selected colour, applied by this host: the camera has none of its own."},
                  block::balance_red}},
                sizeof(float), !in_camera);
    add_temperatures(to);
}

void add_focus(feature_writer& to) {
    to.begin_category({"AutoFocusControl", "Auto Focus Control", "Automatic focus, computed by this host."});
    if (!to.command({"AutoFocusOnce", "Auto Focus Once", "Looks for the sharpest position of the lens."},
                    own_register::focus_start))
        return;
    to.flag({"AutoFocusRunning", "Auto Focus Running", "It is looking."}, block::focus_running);
    to.flag({"AutoFocusRegionEnable",
             "Auto Focus Region Enable",
             "Only the region of the automatic functions counts.",
             {},
             expert},
            block::focus_region);
}

void add_region(feature_writer& to) {
    to.begin_category({"AutoRegionControl", "Auto Region Control",
                       "The part of the image that counts for brightness and white balance."});
    if (!to.flag({"AutoRegionEnable", "Auto Region Enable", "Only the region counts, not the whole image."},
                 block::region_set))
        return;
    to.number({"AutoRegionOffsetX", "Auto Region Offset X", "Left edge. What is outside the image does not count."},
              block::region_left);
    to.number({"AutoRegionOffsetY", "Auto Region Offset Y", "Top edge. What is outside the image does not count."},
              block::region_top);
    to.number({"AutoRegionWidth", "Auto Region Width", "Width; all four at 0: the whole image."}, block::region_width);
    to.number({"AutoRegionHeight", "Auto Region Height", "Height; all four at 0: the whole image."},
              block::region_height);
}

void add_pixel_functions(feature_writer& to, bool colour) {
    to.begin_category({"SoftwarePictureControl", "Software Picture Control", "Functions on every pixel."});
    to.number({"SoftwareBrightness", "Software Brightness", "Added to each value, in 1/256 of full scale."},
              block::brightness);
    to.number({"SoftwareGamma", "Software Gamma", "Exponent of each value; below 1 lifts the shadows."}, block::gamma);
    if (colour) {
        to.number(
            {"SoftwareSaturation", "Software Saturation", "100 leaves colours as they are, 0 takes them away.", "%"},
            block::saturation);
        to.number({"SoftwareHue", "Software Hue", "Turns all colours around the circle.", "deg"}, block::hue);
    }
    to.number({"SoftwareSharpness", "Software Sharpness", "Contrast of edges, in 1/32 of it; below 0 blurs."},
              block::sharpness);
    to.number({"SoftwareDenoise", "Software Denoise", "Smooths differences of up to this many counts of 8 bits."},
              block::denoise);
    if (!colour) return;
    to.begin_category(
        {"SoftwareColorMatrixControl", "Software Color Matrix Control", "Red, green and blue out of all three."});
    if (to.flag(
            {"SoftwareColorMatrixEnable", "Software Color Matrix Enable", "Switches the colour matrix.", {}, expert},
            block::color_matrix_enable))
        to.selected({"SoftwareColorMatrixSelector",
                     "Software Color Matrix Selector",
                     "Row and column of SoftwareColorMatrixValue: what Gain01 gives red is taken of green.",
                     {},
                     expert},
                    {"Gain00", "Gain01", "Gain02", "Gain10", "Gain11", "Gain12", "Gain20", "Gain21", "Gain22"},
                    {{{"SoftwareColorMatrixValue", "Software Color Matrix Value", "The selected element.", {}, expert},
                      block::color_matrix}},
                    sizeof(float), true);
}

void add_tone_mapping(feature_writer& to) {
    to.begin_category({"SoftwareToneMappingControl", "Software Tone Mapping Control",
                       "Brings bright and dark parts closer together."});
    if (!to.flag({"SoftwareToneMapping", "Software Tone Mapping", "Switches tone mapping."}, block::tonemapping_enable))
        return;
    to.number({"SoftwareToneMappingIntensity", "Software Tone Mapping Intensity", "More lifts the dark parts more."},
              block::tonemapping_intensity);
    to.number({"SoftwareToneMappingGlobalBrightness", "Software Tone Mapping Global Brightness",
               "Share of the whole image's brightness in what a pixel is compared with; the rest is its own."},
              block::tonemapping_brightness);
}

// Of any element; each level is a tab on every line of the levels below. A node's own elements need a handful of
// levels, the rest is for groups.
constexpr int deepest = 64;

struct name_collector final : pugi::xml_tree_walker {
    // Ends the walk where it is too deep.
    bool for_each(pugi::xml_node& node) override {
        if (depth() > deepest) return false;
        const std::string_view kind = node.name();
        if (node.type() != pugi::node_element) return true;
        const std::string_view name = node.attribute("Name").value();
        if (kind == "Streamable") marks_streamable = true;
        if (name.empty() || kind == "EnumEntry" || kind == "pVariable" || kind == "Constant" || kind == "Expression")
            return true;
        names.insert(name);
        if (kind == "Category" && name == "Root" && !root) root = node;
        if (kind == "Port" && name == "Device") has_port = true;
        return true;
    }
    std::set<std::string_view> names; // of the document's own text
    pugi::xml_node root;
    bool has_port = false;
    bool marks_streamable = false;
};

merge_result unchanged(std::string reason) { return {std::nullopt, std::move(reason)}; }

} // namespace

merge_result merge_features(std::string_view document, const camera_abilities& camera) {
    if (document.size() > most_document_bytes) return unchanged("it is too large");
    pugi::xml_document xml;
    constexpr unsigned everything =
        pugi::parse_default | pugi::parse_comments | pugi::parse_pi | pugi::parse_declaration | pugi::parse_doctype;
    const auto parsed = xml.load_buffer(document.data(), document.size(), everything);
    if (!parsed) return unchanged(fmt::format("{} at offset {}", parsed.description(), parsed.offset));
    pugi::xml_node description = xml.document_element();
    name_collector own;
    if (!description.traverse(own)) return unchanged("it is nested too deeply");
    if (!own.root) return unchanged("it has no category 'Root'");
    if (!own.has_port) return unchanged("it has no port 'Device'");
    if (own.names.contains(root_text.name)) return unchanged("it has a 'SoftwareImageProcessing' of its own");

    // Among a camera's own marks only: who saves what is marked would save ours alone. GenApi 1.0 has no such element.
    feature_writer features{[&](std::string_view name) { return own.names.contains(name); }, own.marks_streamable};
    add_general(features, camera.exposure || camera.gain || camera.iris);
    if (camera.exposure) add_exposure(features);
    if (camera.gain) add_gain(features);
    if (camera.iris) add_iris(features);
    if (camera.colour) add_white_balance(features, camera.balance_in_camera);
    if (camera.focus) add_focus(features);
    add_region(features);
    add_pixel_functions(features, camera.colour);
    add_tone_mapping(features);

    const auto model = features.finish(root_text);
    for (const genicam_gen::node& record : model.nodes())
        genicam_gen::write_node(record, description.append_child("Category"));
    own.root.append_child("pFeature").text().set(std::string{root_text.name}.c_str());

    if (const pugi::xml_node first = xml.first_child();
        first.type() == pugi::node_declaration && first.attribute("encoding"))
        first.attribute("encoding").set_value("utf-8"); // as it is written
    std::string text = genicam_gen::serialize_to_string(xml, most_document_bytes);
    if (text.size() > most_document_bytes) return unchanged("it is too large with them");
    return {std::move(text), {}};
}

} // namespace image_features
