#include <string>

#include "image/ChannelFiles.h"
#include "image/ImageTestFiles.h"
#include "image/StackLayout.h"

namespace pv {
namespace {

using testing::TempDir;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The OME elements as a writer that names its namespace writes them.
std::string prefixed(std::string xml, const std::string& prefix) {
    for (const char* name : {"OME", "Image", "Pixels", "Channel"}) {
        for (const std::string open : {"<", "</"}) {
            xml = replaced(xml, open + name + " ", open + prefix + name + " ");
            xml = replaced(xml, open + name + ">", open + prefix + name + ">");
            xml = replaced(xml, open + name + "/", open + prefix + name + "/");
        }
    }
    return xml;
}

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
        {"ImageJ with Windows line ends", "ImageJ=1.54f\r\nimages=10\r\nchannels=2\r\nslices=5\r\n",
         10, 2, 5, 1, "CZT", 1 + 3 * 2},
        {"OME-TIFF with a namespace prefix", prefixed(ome, "ome:"), 10, 2, 5, 1, "ZCT", 3 + 1 * 5},
        // tifffile's RGB picture: its three channels are the samples of one page.
        {"OME-TIFF of one RGB page",
         std::string(kOmeStart) +
             R"(DimensionOrder="XYCZT" SizeC="3" SizeZ="1" SizeT="1" SizeX="4" SizeY="3" )"
             R"(Type="uint8"><Channel ID="Channel:0:0" SamplesPerPixel="3"/></Pixels></Image></OME>)",
         1, 1, 1, 1, "CZT", 0},
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
    // A name beyond the channels would pick a page of another slice.
    auto oneChannel = stackLayoutOf(replaced(ome, "SizeC=\"2\"", "SizeC=\"1\""), 10);
    EXPECT_EQ(oneChannel->channelNamed("GFP"), -1);
}

// Counts whose product wraps (2^72 is 0 in 64 bits, 2^32 in 32) must not pass for a few pages.
TEST(StackLayout, RefusesDescriptionsThePagesCannotHold) {
    const std::string most = "16777216";
    const std::pair<std::string, std::string> cases[] = {
        {"ImageJ=1.54f\nimages=10\nchannels=2\nslices=5\nframes=2\n",
         "the description gives 2 channels x 5 slices x 2 frames, but the file holds 10 pages"},
        {"ImageJ=1.54f\nchannels=" + most + "\nslices=" + most + "\nframes=" + most + "\n",
         "the description gives 16777216 channels x 16777216 slices x 16777216 frames, but the "
         "file holds 10 pages"},
        {std::string(kOmeStart) + R"(DimensionOrder="XYCZT" SizeC=")" + most + R"(" SizeZ=")" +
             most + R"(" SizeT=")" + most + R"("/></Image></OME>)",
         "the description gives 16777216 channels x 16777216 slices x 16777216 frames, but the "
         "file holds 10 pages"},
        {"ImageJ=1.54f\nchannels=65536\nslices=65536\n",
         "the description gives 65536 channels x 65536 slices x 1 frames, but the file holds 10 "
         "pages"},
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

// Pages are read where one walk of the file found them, in either byte order and in BigTIFF;
// the page count and its messages come from the same walk.
TEST(StackLayout, EachPageIsReadWhereTheWalkFoundIt) {
    TempDir dir;
    const int pages = 5;
    for (const char* mode : {"w", "wb", "w8", "wb8"}) {
        SCOPED_TRACE(mode);
        const std::string path = dir.file(std::string("pages-") + mode + ".tif");
        TIFF* t = TIFFOpen(path.c_str(), mode);
        ASSERT_NE(t, nullptr);
        for (int page = 0; page < pages; ++page) {
            ASSERT_TRUE(page == 0 || TIFFWriteDirectory(t) == 1);
            testing::writeTiffPage(
                t, {.wide = 3, .high = 2, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK},
                std::vector<std::uint32_t>(6, std::uint32_t(40 * page)));
        }
        TIFFClose(t);
        auto layout = readStackLayout(path);
        ASSERT_TRUE(layout.ok()) << layout.error().message();
        ASSERT_EQ(layout->pageIndex->size(), std::size_t(pages));
        for (std::uint32_t page : {3u, 1u, 4u}) {
            for (const PageIndex& index : {layout->pageIndex, PageIndex()}) {
                auto read = readChannelPair({path, {}, page, index}, {path, {}, 0, index}, {0, 1});
                ASSERT_TRUE(read.ok()) << read.error().message();
                EXPECT_EQ(read->bitmap->row(0, 1)[3 * 2], 40 * page);
            }
        }
    }
}

// Appends `count` directories of no entries to a little-endian file of one page.
void appendEmptyDirectories(std::vector<std::uint8_t>& b, int count) {
    const auto at = [&](std::size_t i, int bytes) {
        std::uint32_t v = 0;
        for (int k = bytes - 1; k >= 0; --k) {
            v = v << 8 | b[i + std::size_t(k)];
        }
        return v;
    };
    const std::size_t first = at(4, 4);
    std::size_t next = first + 2 + 12 * at(first, 2);
    for (int i = 0; i < count; ++i) {
        const auto offset = std::uint32_t(b.size());
        for (int k = 0; k < 4; ++k) {
            b[next + std::size_t(k)] = std::uint8_t(offset >> (8 * k));
        }
        b.insert(b.end(), 6, 0);
        next = b.size() - 4;
    }
}

// An empty directory is a page that cannot be read, named as such; directories that overlap,
// so that a few bytes would count page after page, refuse the file.
TEST(StackLayout, PagesThatCannotBeReadAreNamedAndOverlappingOnesRefused) {
    TempDir dir;
    const std::string path = dir.file("empty-pages.tif");
    testing::writeTiff(path,
                       {.wide = 3, .high = 2, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK},
                       std::vector<std::uint32_t>(6, 9));
    auto bytes = testing::readBytes(path);
    appendEmptyDirectories(bytes, 3);
    testing::writeBytes(path, bytes);
    auto layout = readStackLayout(path);
    ASSERT_TRUE(layout.ok()) << layout.error().message();
    EXPECT_EQ(layout->slices, 4);
    auto read =
        readChannelPair({path, {}, 0, layout->pageIndex}, {path, {}, 2, layout->pageIndex}, {0, 1});
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error().reason,
              "page 3 of 4: the file is damaged and the picture cannot be read");

    // The first directory claims 80 entries and leads to one inside them that claims as many.
    std::vector<std::uint8_t> overlap(976, 0);
    const std::uint8_t start[] = {'I', 'I', 42, 0, 8, 0, 0, 0, 80, 0, 80, 0};
    std::copy(std::begin(start), std::end(start), overlap.begin());
    overlap[970] = 10;
    testing::writeBytes(dir.file("overlap.tif"), overlap);
    const std::string refusal =
        "the file is damaged: the directories of its first 2 pages would take more than its 976 "
        "bytes";
    EXPECT_EQ(readStackLayout(dir.file("overlap.tif")).error().reason, refusal);
    EXPECT_EQ(readImageFile(dir.file("overlap.tif")).error().reason, refusal);
}

}  // namespace
}  // namespace pv
