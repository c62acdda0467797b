#include "picture_file.h"

#include "../failure/failure.h"
#include "../output/output.h"
#include "../posix/atomic_file.h"
#include "pfnc.h"

#include <img_pipe/format.h>

#include <fmt/format.h>
#include <png.h>
#include <tiffio.h>
#include <tiffio.hxx>

#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>
#include <vector>

namespace cli {

namespace {

struct layout {
    unsigned channels = 1;
    unsigned sample_bits = 8; // in memory: 8 or 16
    unsigned significant = 8; // the lower ones of them
    bool blue_first = false;
    bool is_mosaic = false;
};

std::optional<layout> layout_of(uint32_t pfnc) {
    switch (pfnc) {
    case rgb8:
        return layout{3, 8, 8, false, false};
    case bgr8:
        return layout{3, 8, 8, true, false};
    case rgba8:
        return layout{4, 8, 8, false, false};
    case bgra8:
        return layout{4, 8, 8, true, false};
    default:
        break;
    }
    // "Mono12", "BayerRG8": one sample a pixel. Behind the digits stands how samples share bytes, which is no word a
    // file holds.
    const std::string_view name = img_pipe::pfnc_name(pfnc);
    const bool is_mosaic = name.starts_with("Bayer");
    if (!name.starts_with("Mono") && !is_mosaic) return std::nullopt;
    const size_t at = name.find_first_of("0123456789");
    if (at == name.npos) return std::nullopt;
    unsigned significant = 0;
    const auto [end, failed] = std::from_chars(name.data() + at, name.data() + name.size(), significant);
    const unsigned bits = pfnc >> 16 & 0xFF;
    if (failed != std::errc{} || end != name.data() + name.size() || (bits != 8 && bits != 16) || significant > bits ||
        significant < 8) {
        return std::nullopt;
    }
    return layout{1, bits, significant, false, is_mosaic};
}

void append_bytes(png_structp writer, png_bytep bytes, png_size_t size) {
    auto& out = *static_cast<std::vector<std::byte>*>(png_get_io_ptr(writer));
    const auto* first = reinterpret_cast<const std::byte*>(bytes);
    bool taken = false;
    try {
        out.insert(out.end(), first, first + size);
        taken = true;
    } catch (const std::bad_alloc&) {
        // No exception may pass through the library.
    }
    if (!taken) png_error(writer, "out of memory");
}

// libpng fails by a jump back to here: nothing in this function has a destructor. `line` has room for one.
bool write_png(png_structp png, png_infop info, const picture& shown, const layout& samples, png_bytep line,
               size_t line_size) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_compression_level(png, 1); // a line camera's disk is faster than a higher one
    const int colour = samples.channels == 1   ? PNG_COLOR_TYPE_GRAY
                       : samples.channels == 3 ? PNG_COLOR_TYPE_RGB
                                               : PNG_COLOR_TYPE_RGB_ALPHA;
    png_set_IHDR(png, info, shown.width, shown.height, static_cast<int>(samples.sample_bits), colour,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const unsigned shift = samples.sample_bits - samples.significant;
    if (shift != 0) {
        png_color_8 significant{};
        significant.gray = static_cast<png_byte>(samples.significant);
        png_set_sBIT(png, info, &significant);
    }
    png_write_info(png, info);
    if (samples.blue_first) png_set_bgr(png);
    for (uint32_t y = 0; y < shown.height; ++y) {
        const auto* bytes = reinterpret_cast<const png_byte*>(shown.data.data()) + y * line_size;
        if (samples.sample_bits == 8) {
            png_write_row(png, bytes);
            continue;
        }
        // Of our two bytes the lower comes first, of PNG's the higher.
        for (size_t i = 0; i < line_size; i += 2) {
            const unsigned sample = (bytes[i] | static_cast<unsigned>(bytes[i + 1]) << 8) << shift;
            line[i] = static_cast<png_byte>(sample >> 8);
            line[i + 1] = static_cast<png_byte>(sample);
        }
        png_write_row(png, line);
    }
    png_write_end(png, info);
    return true;
}

// Into memory: the file is then made in one step.
std::vector<std::byte> png_of(const picture& shown, const layout& samples) {
    std::vector<std::byte> file;
    std::vector<png_byte> line(size_t{shown.width} * samples.channels * samples.sample_bits / 8);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    bool good = false;
    if (info != nullptr) {
        png_set_write_fn(png, &file, append_bytes, nullptr);
        good = write_png(png, info, shown, samples, line.data(), line.size());
    }
    png_destroy_write_struct(&png, &info);
    if (!good)
        throw failure(cause::output,
                      fmt::format("A picture of {} x {} pixels cannot be made a PNG.", shown.width, shown.height));
    return file;
}

std::string tiff_of(const picture& shown, const layout& samples) {
    std::ostringstream file;
    TIFF* const tiff = TIFFStreamOpen("picture", &file);
    if (tiff == nullptr) throw std::bad_alloc{};
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, shown.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, shown.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, samples.sample_bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples.channels);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, samples.channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, shown.height);
    if (samples.channels == 4) {
        const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &alpha);
    }
    // The range that viewers are to show as black to white.
    if (samples.significant != samples.sample_bits)
        TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, (1U << samples.significant) - 1);
    const size_t line_size = size_t{shown.width} * samples.channels * samples.sample_bits / 8;
    std::vector<std::byte> line(line_size);
    bool good = true;
    for (uint32_t y = 0; y < shown.height && good; ++y) {
        std::ranges::copy(shown.data.subspan(y * line_size, line_size), line.begin());
        if (samples.blue_first)
            for (size_t i = 0; i + 2 < line_size; i += samples.channels) std::swap(line[i], line[i + 2]);
        good = TIFFWriteScanline(tiff, line.data(), y, 0) == 1;
    }
    TIFFClose(tiff);
    if (!good || !file)
        throw failure(cause::output,
                      fmt::format("A picture of {} x {} pixels cannot be made a TIFF.", shown.width, shown.height));
    return std::move(file).str();
}

} // namespace

void join_lines(std::span<const std::byte> data, uint32_t width, uint32_t height, uint32_t pfnc, size_t padding,
                std::vector<std::byte>& joined) {
    const size_t pixel_bits = pfnc >> 16 & 0xFF, line = (size_t{width} * pixel_bits + 7) / 8;
    joined.clear();
    if (padding != 0 && line != 0)
        for (uint32_t y = 0; y < height && !data.empty(); ++y) {
            const auto samples = data.first(std::min(line, data.size()));
            joined.insert(joined.end(), samples.begin(), samples.end());
            data = data.subspan(std::min(line + padding, data.size()));
        }
    joined.insert(joined.end(), data.begin(), data.end());
}

std::string pixel_format_name(uint32_t pfnc) {
    const std::string_view name = img_pipe::pfnc_name(pfnc);
    return name.empty() || name == "UnknownPixelFormat" ? fmt::format("0x{:08X}", pfnc) : std::string{name};
}

bool is_storable(uint32_t pfnc) { return layout_of(pfnc).has_value(); }

written_picture write_picture(const std::filesystem::path& stem, const picture& shown, file_kind kind,
                              const nlohmann::json& about) {
    const auto samples = layout_of(shown.pfnc);
    written_picture done{stem, pixel_format_name(shown.pfnc), {}};
    const size_t need = samples ? size_t{shown.width} * shown.height * samples->channels * samples->sample_bits / 8 : 0;
    if (kind != file_kind::raw && need != 0 && shown.data.size() >= need) {
        done.path += kind == file_kind::png ? ".png" : ".tiff";
        const unsigned shift = samples->sample_bits - samples->significant;
        if (kind == file_kind::png) {
            write_file(done.path, png_of(shown, *samples));
            if (shift != 0) {
                done.note = fmt::format("samples of {} bits moved up by {} to fill 16", samples->significant, shift);
                done.pixel_format = samples->is_mosaic ? done.pixel_format.substr(0, 7) + "16" : "Mono16";
            }
        } else {
            write_file(done.path, tiff_of(shown, *samples));
            if (shift != 0)
                done.note = fmt::format("samples of {} bits in words of 16, as they came", samples->significant);
        }
        if (samples->is_mosaic)
            done.note += fmt::format("{}colour filter kept, as grey", done.note.empty() ? "" : "; ");
        return done;
    }
    if (kind != file_kind::raw)
        done.note = need == 0 ? fmt::format("no format of a {} file: raw", kind == file_kind::png ? "PNG" : "TIFF")
                              : "too short for its size: raw";
    done.path += ".raw";
    write_file(done.path, shown.data);
    std::filesystem::path side = stem;
    side += ".json";
    nlohmann::json description = about;
    description["file"] = done.path.filename().string();
    description["width"] = shown.width;
    description["height"] = shown.height;
    description["pixel_format"] = done.pixel_format;
    description["pfnc"] = shown.pfnc;
    description["bytes"] = shown.data.size();
    write_file(side, json_text(description) + '\n');
    return done;
}

} // namespace cli
