#include "image/StackLayout.h"

#include <tiffio.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <pugixml.hpp>
#include <sstream>

#include "core/Localization.h"
#include "image/ImageFile.h"

namespace pv {

namespace {

// A positive count as a description writes it; 0 when it is not one.
int countOf(std::string_view text) {
    int n = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
    return ec == std::errc() && end == text.data() + text.size() && n > 0 && n <= 1 << 24 ? n : 0;
}

// ImageJ writes "ImageJ=1.54f", then one "key=value" a line.
StackLayout imageJLayout(const std::string& description) {
    StackLayout s;
    s.kind = StackLayout::Kind::ImageJ;
    int images = 0;
    std::istringstream lines(description);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string key = line.substr(0, equals);
        const int n = countOf(std::string_view(line).substr(equals + 1));
        if (key == "images") {
            images = n;
        } else if (key == "channels" && n) {
            s.channels = n;
        } else if (key == "slices" && n) {
            s.slices = n;
        } else if (key == "frames" && n) {
            s.frames = n;
        }
    }
    // A plain ImageJ stack names only its images: they are slices.
    if (images > 1 && s.channels == 1 && s.slices == 1 && s.frames == 1) {
        s.slices = images;
    }
    return s;
}

Result<StackLayout> omeLayout(const std::string& description) {
    pugi::xml_document doc;
    if (!doc.load_string(description.c_str())) {
        return Error{{}, tr("the OME-XML description cannot be read")};
    }
    // The first image series; the root may carry a namespace prefix ("ome:OME").
    pugi::xml_node pixels;
    for (pugi::xml_node image : doc.document_element().children()) {
        const std::string name = image.name();
        if (name == "Image" || name.ends_with(":Image")) {
            for (pugi::xml_node child : image.children()) {
                const std::string childName = child.name();
                if (childName == "Pixels" || childName.ends_with(":Pixels")) {
                    pixels = child;
                    break;
                }
            }
            break;
        }
    }
    if (!pixels) {
        return Error{{}, tr("the OME-XML description has no image")};
    }
    StackLayout s;
    s.kind = StackLayout::Kind::OME;
    s.channels = countOf(pixels.attribute("SizeC").value());
    s.slices = countOf(pixels.attribute("SizeZ").value());
    s.frames = countOf(pixels.attribute("SizeT").value());
    const std::string order = pixels.attribute("DimensionOrder").value();
    const bool orderOk =
        order.size() == 5 && order.rfind("XY", 0) == 0 &&
        std::is_permutation(order.begin() + 2, order.end(), std::string("CZT").begin());
    if (!s.channels || !s.slices || !s.frames || !orderOk) {
        return Error{{}, tr("the OME-XML description gives no valid size or dimension order")};
    }
    s.order = order.substr(2);
    for (pugi::xml_node child : pixels.children()) {
        const std::string name = child.name();
        if (name == "Channel" || name.ends_with(":Channel")) {
            s.channelNames.push_back(child.attribute("Name").value());
        }
    }
    return s;
}

}  // namespace

std::uint32_t StackLayout::pageOf(int channel, int slice, int frame) const {
    std::uint32_t page = 0, stride = 1;
    for (const char d : order) {
        const int index = d == 'C' ? channel : d == 'Z' ? slice : frame;
        const int size = d == 'C' ? channels : d == 'Z' ? slices : frames;
        page += std::uint32_t(index) * stride;
        stride *= std::uint32_t(size);
    }
    return page;
}

int StackLayout::channelNamed(const std::string& name) const {
    const auto at = std::find(channelNames.begin(), channelNames.end(), name);
    return at == channelNames.end() ? -1 : int(at - channelNames.begin());
}

Result<StackLayout> stackLayoutOf(const std::string& description, std::uint32_t pages) {
    Result<StackLayout> layout = StackLayout{};
    if (description.rfind("ImageJ=", 0) == 0) {
        layout = imageJLayout(description);
    } else if (description.find("<OME") != std::string::npos &&
               description.find("<?xml") != std::string::npos) {
        layout = omeLayout(description);
    } else {
        layout->slices = int(std::min<std::uint32_t>(pages, 1u << 24));
    }
    if (!layout) {
        return layout;
    }
    layout->pages = pages;
    const std::uint64_t needed = std::uint64_t(layout->channels) * std::uint64_t(layout->slices) *
                                 std::uint64_t(layout->frames);
    if (needed > pages) {
        return Error{{},
                     tr("the description gives %1 channels x %2 slices x %3 frames, but the "
                        "file holds %4 pages",
                        {std::to_string(layout->channels), std::to_string(layout->slices),
                         std::to_string(layout->frames), std::to_string(pages)})};
    }
    return layout;
}

Result<StackLayout> readStackLayout(const std::string& path) {
    if (imageKindOfFile(path) != ImageKind::TIFF) {
        return StackLayout{};
    }
    // Errors here would repeat those of reading the picture itself, which come first.
    struct Closer {
        void operator()(TIFF* t) const { TIFFClose(t); }
    };
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) {
        return Error{path, tr("there is not enough memory to open the picture")};
    }
    TIFFOpenOptionsSetErrorHandlerExtR(
        options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(
        options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    std::unique_ptr<TIFF, Closer> tif(TIFFOpenExt(path.c_str(), "rm", options));
    TIFFOpenOptionsFree(options);
    if (!tif) {
        return Error{path, tr("the file is damaged and the picture cannot be read")};
    }
    const std::uint32_t pages = std::max<std::uint32_t>(1, TIFFNumberOfDirectories(tif.get()));
    const char* text = nullptr;
    const std::string description =
        TIFFGetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, &text) && text ? text : "";
    Result<StackLayout> layout = stackLayoutOf(description, pages);
    if (!layout) {
        return Error{path, layout.error().reason};
    }
    return layout;
}

}  // namespace pv
