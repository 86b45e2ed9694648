#pragma once

#include <memory>
#include <string>
#include <vector>

#include "controller/PixmeraVeltroController.h"
#include "core/Result.h"
#include "image/ChannelFiles.h"
#include "image/StackLayout.h"

namespace pv {

// Whether a file's pages hold more than one picture to choose among.
bool isStack(const StackLayout& layout);
// What a channel chooser lists: the names the file gives its channels, "Channel N" for each it
// does not name; counted from 1 as ImageJ does.
std::vector<std::string> channelChoices(const StackLayout& layout);

// One slice of a stack (a multi-page TIFF, ImageJ hyperstack or OME-TIFF) under analysis at a
// time: which channel is Y and which X, which slice and frame, and so which page each role
// reads. Moving to another slice loads it as the picture, the mask and the background
// corrections kept; a slice that cannot be read changes nothing. Every other picture the controller
// takes ends it. Everything counts from 0 here; the texts count from 1.
class StackBrowser {
  public:
    explicit StackBrowser(PixmeraVeltroController& controller) : controller_(controller) {}

    // The stack's first slice and frame with channels 1 and 2 (channel 1 twice when there is
    // one) instead of the file's first page, when the file is a stack of grey pages. False,
    // with nothing changed, when it is not (one picture, or colour pages).
    bool open(const std::string& path);
    // The two roles from these channels of one stack file, at its first slice and frame.
    Status open(const std::string& path, const StackLayout& layout, int yChannel, int xChannel);
    // Open Channels: a channel of each file (of a stack, at its first slice and frame; of any
    // other file, its grey). Both from one stack: that stack is browsed.
    Status openChannels(const std::string& yPath, int yChannel, const std::string& xPath,
                        int xChannel);
    // Whether the picture under analysis is still the slice shown last: a picture from
    // anywhere else ends the browsing.
    bool active() const;
    const StackLayout& layout() const { return layout_; }
    const std::string& path() const { return path_; }
    int yChannel() const { return y_; }
    int xChannel() const { return x_; }
    int slice() const { return slice_; }
    int frame() const { return frame_; }
    // "Slice 3 / 33", "Frame 2 / 5".
    std::string sliceText() const;
    std::string frameText() const;
    // The page each role reads.
    ChannelSource ySource() const { return source(y_); }
    ChannelSource xSource() const { return source(x_); }

    Status showSlice(int slice);
    Status showFrame(int frame);
    Status chooseChannels(int yChannel, int xChannel);

  private:
    ChannelSource source(int channel) const;
    // Loads the pair for these choices, which become current only when it could be read.
    Status show(int y, int x, int slice, int frame, bool sameStack);

    PixmeraVeltroController& controller_;
    StackLayout layout_;
    std::string path_;
    std::weak_ptr<const Bitmap> shown_;  // the slice as loaded
    int y_ = 0, x_ = 0, slice_ = 0, frame_ = 0;
};

}  // namespace pv
