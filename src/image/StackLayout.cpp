#include "image/StackLayout.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <pugixml.hpp>
#include <sstream>

#include "core/Localization.h"
#include "image/DecoderSupport.h"

namespace pv {

namespace {

// A positive count as a description writes it; 0 when it is not one. At most 2^24, so that the
// product of two counts cannot overflow 64 bits, nor that of three once two are checked.
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
        if (!line.empty() && line.back() == '\r') {  // written on Windows
            line.pop_back();
        }
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

// An element of that name, whatever namespace prefix it carries ("ome:Image" is an Image).
bool isElement(const pugi::xml_node& node, std::string_view name) {
    const std::string_view full = node.name();
    const std::size_t colon = full.rfind(':');
    return (colon == std::string_view::npos ? full : full.substr(colon + 1)) == name;
}

pugi::xml_node childElement(const pugi::xml_node& parent, std::string_view name) {
    for (pugi::xml_node child : parent.children()) {
        if (isElement(child, name)) {
            return child;
        }
    }
    return {};
}

Result<StackLayout> omeLayout(const std::string& description) {
    pugi::xml_document doc;
    if (!doc.load_string(description.c_str())) {
        return Error{{}, tr("the OME-XML description cannot be read")};
    }
    // The first image series.
    const pugi::xml_node pixels =
        childElement(childElement(doc.document_element(), "Image"), "Pixels");
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
    int planes = 0;
    std::int64_t samples = 0;
    for (pugi::xml_node child : pixels.children()) {
        if (isElement(child, "Channel")) {
            ++planes;
            samples += std::max(1, countOf(child.attribute("SamplesPerPixel").value()));
            s.channelNames.push_back(child.attribute("Name").value());
        }
    }
    // An RGB picture's three channels are one Channel of 3 samples a pixel, held in one page.
    if (planes > 0 && planes < s.channels && samples == s.channels) {
        s.channels = planes;
    }
    // Names beyond the channels would pick some other page.
    s.channelNames.resize(std::min(s.channelNames.size(), std::size_t(s.channels)));
    return s;
}

}  // namespace

std::uint32_t StackLayout::pageOf(int channel, int slice, int frame) const {
    // In 64 bits: a layout holds at most 2^32 - 1 pages, so a page in range cannot wrap, and
    // one out of range becomes one that is not there.
    std::uint64_t page = 0, stride = 1;
    for (const char d : order) {
        const int index = d == 'C' ? channel : d == 'Z' ? slice : frame;
        const int size = d == 'C' ? channels : d == 'Z' ? slices : frames;
        page += std::uint64_t(std::max(index, 0)) * stride;
        stride *= std::uint64_t(std::max(size, 1));
    }
    return std::uint32_t(std::min<std::uint64_t>(page, std::numeric_limits<std::uint32_t>::max()));
}

int StackLayout::channelNamed(const std::string& name) const {
    const auto at = std::find(channelNames.begin(), channelNames.end(), name);
    return at == channelNames.end() ? -1 : int(at - channelNames.begin());
}

Result<StackLayout> stackLayoutOf(const std::string& description, std::uint32_t pages) {
    Result<StackLayout> layout = StackLayout{};
    if (description.rfind("ImageJ=", 0) == 0) {
        layout = imageJLayout(description);
    } else if (description.find("<?xml") != std::string::npos &&
               (description.find("<OME") != std::string::npos ||
                description.find(":OME") != std::string::npos)) {
        layout = omeLayout(description);
    } else {
        layout->slices = int(std::min<std::uint32_t>(pages, 1u << 24));
    }
    if (!layout) {
        return layout;
    }
    layout->pages = pages;
    // Each count is at most 2^24 (2^72 in all would wrap to 0 in 64 bits): the product of the
    // first two is checked before the third multiplies it.
    const std::uint64_t channelsAndSlices =
        std::uint64_t(layout->channels) * std::uint64_t(layout->slices);
    if (channelsAndSlices > pages || channelsAndSlices * std::uint64_t(layout->frames) > pages) {
        return Error{{},
                     tr("the description gives %1 channels x %2 slices x %3 frames, but the "
                        "file holds %4 pages",
                        {std::to_string(layout->channels), std::to_string(layout->slices),
                         std::to_string(layout->frames), std::to_string(pages)})};
    }
    return layout;
}

Result<StackLayout> readStackLayout(const std::string& path) {
    const Result<FileStart> start = fileStart(path);
    if (!start) {
        return start.error();
    }
    if (start->kind != ImageKind::TIFF) {
        return StackLayout{};
    }
    Result<decode::TiffPages> read = decode::readTiffPages(path, start->size);
    if (!read) {
        return Error{path, read.error().reason};
    }
    const auto pages = std::uint32_t(std::max<std::size_t>(1, read->index->size()));
    Result<StackLayout> layout = stackLayoutOf(read->description, pages);
    if (!layout) {
        return Error{path, layout.error().reason};
    }
    layout->pageIndex = read->index;
    return layout;
}

}  // namespace pv
