#include "image/ChannelFiles.h"
#include "image/ImageTestFiles.h"
#include "image/StackLayout.h"

namespace pv {
namespace {

using testing::TempDir;

const char* const kOmeStart =
    R"(<?xml version="1.0" encoding="UTF-8"?><OME xmlns="http://www.openmicroscopy.org/Schemas/OME/2016-06"><Image ID="Image:0"><Pixels ID="Pixels:0" )";

// Where channel c, slice z, frame t lies among the pages, for each way files describe it.
TEST(StackLayout, FindsEachChannelSliceAndFrameInThePages) {
    const std::string ome = std::string(kOmeStart) +
                            R"(DimensionOrder="XYZCT" SizeC="2" SizeZ="5" SizeT="1" SizeX="4" )"
                            R"(SizeY="3" Type="uint8"><Channel ID="Channel:0:0" Name="DAPI"/>)"
                            R"(<Channel ID="Channel:0:1" Name="GFP"/></Pixels></Image></OME>)";
    const struct {
        const char* name;
        std::string description;
        std::uint32_t pages;
        int c, z, t;
        std::string order;
        std::uint32_t pageOfC1Z3;
    } cases[] = {
        {"ImageJ hyperstack",
         "ImageJ=1.54f\nimages=10\nchannels=2\nslices=5\nhyperstack=true\nmode=composite\n", 10, 2,
         5, 1, "CZT", 1 + 3 * 2},
        {"ImageJ plain stack", "ImageJ=1.54f\nimages=33\nslices=33\nloop=false\n", 33, 1, 33, 1,
         "CZT", 0},
        {"ImageJ images only", "ImageJ=1.54f\nimages=7\n", 7, 1, 7, 1, "CZT", 0},
        {"no description", "", 33, 1, 33, 1, "CZT", 0},
        {"OME-TIFF", ome, 10, 2, 5, 1, "ZCT", 3 + 1 * 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto layout = stackLayoutOf(c.description, c.pages);
        ASSERT_TRUE(layout.ok()) << layout.error().reason;
        EXPECT_EQ(std::tuple(layout->channels, layout->slices, layout->frames, layout->order),
                  std::tuple(c.c, c.z, c.t, c.order));
        if (c.c == 2) {
            EXPECT_EQ(layout->pageOf(1, 3, 0), c.pageOfC1Z3);
        }
    }
    auto named = stackLayoutOf(ome, 10);
    EXPECT_EQ(std::pair(named->channelNamed("GFP"), named->channelNamed("RFP")), std::pair(1, -1));
}

TEST(StackLayout, RefusesDescriptionsThePagesCannotHold) {
    const std::pair<std::string, std::string> cases[] = {
        {"ImageJ=1.54f\nimages=10\nchannels=2\nslices=5\nframes=2\n",
         "the description gives 2 channels x 5 slices x 2 frames, but the file holds 10 pages"},
        {std::string(kOmeStart) + "<broken", "the OME-XML description cannot be read"},
        {std::string(kOmeStart) +
             R"(DimensionOrder="XYQCT" SizeC="2" SizeZ="5" SizeT="1"/></Image></OME>)",
         "the OME-XML description gives no valid size or dimension order"},
    };
    for (const auto& [description, reason] : cases) {
        auto layout = stackLayoutOf(description, 10);
        ASSERT_FALSE(layout.ok()) << description;
        EXPECT_EQ(layout.error().reason, reason);
    }
}

// A 2-channel, 5-slice hyperstack written page by page: each slice's two channels come back as
// the pair, whichever page order the file uses.
TEST(StackLayout, ChannelsOfASliceBecomeThePair) {
    TempDir dir;
    const int w = 6, h = 4;
    const auto sample = [&](int c, int z, int i) {
        return std::uint32_t((c * 97 + z * 31 + i * 7) % 256);
    };
    for (const std::string order : {"CZT", "ZCT"}) {
        SCOPED_TRACE(order);
        StackLayout layout;
        layout.channels = 2;
        layout.slices = 5;
        layout.order = order;
        const std::string path = dir.file("stack-" + order + ".tif");
        TIFF* t = TIFFOpen(path.c_str(), "w");
        ASSERT_NE(t, nullptr);
        for (std::uint32_t page = 0; page < 10; ++page) {
            // Which channel and slice this page holds.
            int pc = 0, pz = 0;
            for (int c = 0; c < 2; ++c) {
                for (int z = 0; z < 5; ++z) {
                    if (layout.pageOf(c, z, 0) == page) {
                        pc = c, pz = z;
                    }
                }
            }
            std::vector<std::uint32_t> samples;
            for (int i = 0; i < w * h; ++i) {
                samples.push_back(sample(pc, pz, i));
            }
            if (page > 0) {
                ASSERT_EQ(TIFFWriteDirectory(t), 1);
            }
            testing::writeTiffPage(
                t, {.wide = w, .high = h, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK},
                samples);
        }
        TIFFClose(t);
        for (int z = 0; z < 5; ++z) {
            auto picture = readChannelPair({path, {}, layout.pageOf(0, z, 0)},
                                           {path, {}, layout.pageOf(1, z, 0)}, {0, 1});
            ASSERT_TRUE(picture.ok()) << picture.error().message();
            const auto got = testing::meshedSamples(*picture->bitmap);
            for (int i = 0; i < w * h; ++i) {
                ASSERT_EQ(std::tuple(got[std::size_t(3 * i)], got[std::size_t(3 * i + 1)]),
                          std::tuple(sample(0, z, i), sample(1, z, i)))
                    << "slice " << z << " pixel " << i;
            }
        }
    }
    auto none = readChannelPair({dir.file("stack-CZT.tif"), {}, 0},
                                {dir.file("stack-CZT.tif"), {}, 10}, {0, 1});
    ASSERT_FALSE(none.ok());
    EXPECT_EQ(none.error().reason, "the file has 10 pages, and no page 11");
}

}  // namespace
}  // namespace pv
