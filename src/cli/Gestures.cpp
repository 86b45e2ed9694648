#include "cli/Gestures.h"

#include <charconv>

#include "core/Localization.h"

namespace pv::cli {

void drawRegion(PixmeraVeltroController& controller, const RegionOption& region) {
    controller.getSelectionTool(popupIndexForSelectionTool(region.tool));
    CROI_ScatterGramCroppingImageView& view = controller.scatterGramGraph();
    const std::vector<Point>& p = region.points;
    auto press = [&view](Point at, int clicks = 1) {
        view.mouseDown({.location = at, .clickCount = clicks});
    };
    auto drag = [&view](Point at) { view.mouseDragged({.location = at}); };
    auto release = [&view](Point at, int clicks = 1) {
        view.mouseUp({.location = at, .clickCount = clicks});
    };

    if (region.tool == SelectionTool::Polygon) {
        press(p[0]);
        drag(p[1]);
        release(p[1]);
        for (std::size_t k = 2; k + 1 < p.size(); ++k) {
            press(p[k]);
            release(p[k]);
        }
        press(p.back());
        release(p.back());
        press(p.back(), 2);
        release(p.back(), 2);
        return;
    }
    press(p.front());
    for (std::size_t k = 1; k + 1 < p.size(); ++k) {
        drag(p[k]);
    }
    if (p.size() == 2) {
        drag(p.back());
    }
    release(p.back());
}

void startController(PixmeraVeltroController& controller, const Options& o, unsigned threads) {
    controller.setAnalysisThreads(threads);
    controller.setReadOptions(ReadOptions{.depthBits = o.depthBits, .threads = threads});
    controller.awakeFromNib();
    controller.applicationDidFinishLaunching();
    controller.setCheckboxes(o.checkboxes);
    if (o.rgbCombo != RGBCombo::RedGreen) {
        controller.getChannelsRGBCombo(popupIndexForRGBCombo(o.rgbCombo));
    }
}

Status followRoad(PixmeraVeltroController& controller, BatchPort& port, const Options& o) {
    for (const BackgroundStep& step : o.background) {
        controller.applyBackgroundLevel(step.channelItem, step.level);
    }

    controller.calculateCoefficientsNow();
    if (port.warningAsked) {
        controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    }
    if (o.region) {
        drawRegion(controller, *o.region);
        controller.calculateROINow();
        if (port.scatterGramWarningAsked) {
            controller.colocalizationScatterGramWarningSheetDidEnd(
                ScatterGramWarningAnswer::Calculate);
        }
        if (o.reveal) {
            controller.reflectWhitePixels();
        }
    }
    return o.measures.any() ? controller.calculateFurtherMeasures(o.measures) : Status();
}

namespace {

// A stack's channel from its number (from 1) or the name the file gives it.
Result<int> stackChannel(const StackLayout& layout, const std::string& text,
                         const std::string& image) {
    int n = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
    if (ec == std::errc() && end == text.data() + text.size()) {
        if (n < 1 || n > layout.channels) {
            return Error{image, tr("there is no channel %1: the stack has %2",
                                   {text, std::to_string(layout.channels)})};
        }
        return n - 1;
    }
    const int named = layout.channelNamed(text);
    if (named < 0) {
        return Error{image, tr("no channel of the stack is named \"%1\"", {text})};
    }
    return named;
}

// The pair of each slice asked for: the one slice of --slice, or every slice with --stack.
Result<std::vector<PixmeraVeltroController::SlicePair>> channelSources(const Options& o,
                                                                       const std::string& image,
                                                                       const StackLayout* known) {
    Result<StackLayout> layout = known ? Result<StackLayout>(*known) : readStackLayout(image);
    if (!layout) {
        return layout.error();
    }
    const bool stack = layout->channels > 1 || layout->slices > 1 || layout->frames > 1;
    if (!stack && o.stack) {
        return Error{image, tr("the file holds one picture, not a stack")};
    }
    if (!stack) {
        // One picture: its colour channels.
        if (o.slice.value_or(1) != 1 || o.frame.value_or(1) != 1) {
            return Error{image, tr("the file holds one picture, not a stack")};
        }
        int y = 0, x = 0;
        for (const auto& [text, into] : {std::pair(&*o.yChannel, &y), {&*o.xChannel, &x}}) {
            auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), *into);
            if (ec != std::errc() || end != text->data() + text->size() || *into < 1 || *into > 3) {
                return Error{image, tr("a picture has channels 1 to 3 (red, green, blue)")};
            }
        }
        return std::vector{std::pair(ChannelSource{image, y - 1}, ChannelSource{image, x - 1})};
    }
    Result<int> y = stackChannel(*layout, *o.yChannel, image);
    Result<int> x = stackChannel(*layout, *o.xChannel, image);
    if (!y || !x) {
        return (!y ? y : x).error();
    }
    const int slice = o.slice.value_or(1), frame = o.frame.value_or(1);
    if (slice > layout->slices) {
        return Error{image, tr("there is no slice %1: the stack has %2",
                               {std::to_string(slice), std::to_string(layout->slices)})};
    }
    if (frame > layout->frames) {
        return Error{image, tr("there is no frame %1: the stack has %2",
                               {std::to_string(frame), std::to_string(layout->frames)})};
    }
    std::vector<PixmeraVeltroController::SlicePair> slices;
    for (int z = o.stack ? 0 : slice - 1; z < (o.stack ? layout->slices : slice); ++z) {
        slices.emplace_back(
            ChannelSource{image, {}, layout->pageOf(*y, z, frame - 1), layout->pageIndex},
            ChannelSource{image, {}, layout->pageOf(*x, z, frame - 1), layout->pageIndex});
    }
    return slices;
}

// A colour channel given as text, 1 to 3, from 0.
std::optional<int> colourChannel(const std::optional<std::string>& text) {
    if (!text) {
        return std::nullopt;
    }
    return std::stoi(*text) - 1;  // checked when the options were read
}

}  // namespace

Status openImage(PixmeraVeltroController& controller, const Options& o, const std::string& image,
                 const StackLayout* layout) {
    Status opened;
    if (o.yFile) {
        opened = controller.openChannelFiles({*o.yFile, colourChannel(o.yChannel)},
                                             {*o.xFile, colourChannel(o.xChannel)});
    } else if (o.yChannel) {
        auto sources = channelSources(o, image, layout);
        opened = !sources ? Status(sources.error())
                 : o.stack
                     ? controller.openStack(*sources)
                     : controller.openChannelFiles(sources->front().first, sources->front().second);
    } else {
        opened = controller.openImageFile(image);
    }
    if (opened && o.mask) {
        opened = controller.setMaskFile(*o.mask);
    }
    return opened;
}

Status slicesJustified(const StackLayout& layout, const std::string& image) {
    return pagesJustified(ChannelSource{image, {}, 0, layout.pageIndex},
                          2 * std::uint64_t(layout.slices));
}

}  // namespace pv::cli
