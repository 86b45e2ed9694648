#include "controller/StackBrowser.h"

#include <algorithm>
#include <tuple>

#include "core/Localization.h"

namespace pv {

bool isStack(const StackLayout& layout) {
    return layout.channels > 1 || layout.slices > 1 || layout.frames > 1;
}

std::vector<std::string> channelChoices(const StackLayout& layout) {
    std::vector<std::string> names;
    for (int c = 0; c < layout.channels; ++c) {
        const bool named = std::size_t(c) < layout.channelNames.size() &&
                           !layout.channelNames[std::size_t(c)].empty();
        names.push_back(named ? layout.channelNames[std::size_t(c)]
                              : tr("Channel %1", {std::to_string(c + 1)}));
    }
    return names;
}

bool StackBrowser::open(const std::string& path) {
    Result<StackLayout> layout = readStackLayout(path);
    if (!layout || !isStack(*layout)) {
        return false;
    }
    // Colour pages are no channels of their own: the picture stays the first page, as read.
    return open(path, *layout, 0, std::min(1, layout->channels - 1)).ok();
}

Status StackBrowser::open(const std::string& path, const StackLayout& layout, int yChannel,
                          int xChannel) {
    const StackLayout before = layout_;
    const std::string beforePath = path_;
    layout_ = layout;
    path_ = path;
    const Status shown = show(yChannel, xChannel, 0, 0, /*sameStack=*/false);
    if (!shown) {
        layout_ = before;
        path_ = beforePath;
    }
    return shown;
}

Status StackBrowser::openChannels(const std::string& yPath, int yChannel, const std::string& xPath,
                                  int xChannel) {
    Result<StackLayout> yLayout = readStackLayout(yPath);
    if (!yLayout) {
        return Status(yLayout.error());
    }
    Result<StackLayout> xLayout = readStackLayout(xPath);
    if (!xLayout) {
        return Status(xLayout.error());
    }
    if (yPath == xPath && isStack(*yLayout)) {
        return open(yPath, *yLayout, yChannel, xChannel);
    }
    ChannelSource sources[2];
    const std::tuple<const std::string&, const StackLayout&, int> roles[] = {
        {yPath, *yLayout, yChannel}, {xPath, *xLayout, xChannel}};
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& [path, layout, channel] = roles[i];
        if (channel < 0 || channel >= layout.channels) {
            return Status(Error{
                path, tr("there is no channel %1 in the file", {std::to_string(channel + 1)})});
        }
        sources[i] = {path, std::nullopt, isStack(layout) ? layout.pageOf(channel, 0, 0) : 0,
                      layout.pageIndex};
    }
    return controller_.replaceWithChannelFiles(sources[0], sources[1], /*anotherSlice=*/false);
}

bool StackBrowser::active() const {
    const std::shared_ptr<const Bitmap> shown = shown_.lock();
    return shown && shown == controller_.workingImage().originalImage().bitmap;
}

std::string StackBrowser::sliceText() const {
    return tr("Slice %1 / %2", {std::to_string(slice_ + 1), std::to_string(layout_.slices)});
}

std::string StackBrowser::frameText() const {
    return tr("Frame %1 / %2", {std::to_string(frame_ + 1), std::to_string(layout_.frames)});
}

ChannelSource StackBrowser::source(int channel) const {
    return {path_, std::nullopt, layout_.pageOf(channel, slice_, frame_), layout_.pageIndex};
}

Status StackBrowser::showSlice(int slice) {
    return show(y_, x_, slice, frame_, true);
}

Status StackBrowser::showFrame(int frame) {
    return show(y_, x_, slice_, frame, true);
}

Status StackBrowser::chooseChannels(int yChannel, int xChannel) {
    return show(yChannel, xChannel, slice_, frame_, true);
}

Status StackBrowser::show(int y, int x, int slice, int frame, bool sameStack) {
    const auto outside = [](int i, int n) { return i < 0 || i >= n; };
    if (outside(y, layout_.channels) || outside(x, layout_.channels) ||
        outside(slice, layout_.slices) || outside(frame, layout_.frames)) {
        return Status(Error{path_, tr("there is no such channel, slice or frame in the stack")});
    }
    const auto page = [&](int channel) {
        return ChannelSource{path_, std::nullopt, layout_.pageOf(channel, slice, frame),
                             layout_.pageIndex};
    };
    const Status shown = controller_.replaceWithChannelFiles(page(y), page(x), sameStack);
    if (shown) {
        y_ = y;
        x_ = x;
        slice_ = slice;
        frame_ = frame;
        shown_ = controller_.workingImage().originalImage().bitmap;
    }
    return shown;
}

}  // namespace pv
