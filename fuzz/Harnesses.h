#pragma once

// The bodies of the libFuzzer harnesses, as plain functions so that the normal test run can
// replay the inputs that once failed without clang. Each takes any bytes and answers 0, as
// LLVMFuzzerTestOneInput must; a fault shows as a crash or a sanitizer report.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace pv::fuzz {

using Harness = int (*)(const std::uint8_t* data, std::size_t size);

// The bytes as an image file opened by the desktop program and the command line: decoded,
// normalised, background-corrected, analysed, coefficients calculated, a region counted and
// revealed, the report built.
int wholeRoad(const std::uint8_t* data, std::size_t size);

// The bytes handed to one decoder, whatever their magic number.
int tiffDecoder(const std::uint8_t* data, std::size_t size);
int jpegDecoder(const std::uint8_t* data, std::size_t size);
int pngDecoder(const std::uint8_t* data, std::size_t size);
int bmpDecoder(const std::uint8_t* data, std::size_t size);

// The bytes as the command line's arguments, separated by NUL; options that parse are then
// followed as the command line would follow them, every file they name (image, mask, label
// image, channel file) standing for one of a few small files written once.
int cliOptions(const std::uint8_t* data, std::size_t size);

// The bytes as a picture with every further measure, then again inside itself as the mask.
int furtherMeasures(const std::uint8_t* data, std::size_t size);
// The bytes as a label image of a picture of its own size (the file itself, when it opens as a
// picture), each cell with every further measure.
int labelImage(const std::uint8_t* data, std::size_t size);
// The bytes as a stack, its pages the slices, as the command line takes one: pooled inside its
// first page as the mask, slice by slice with itself as the label image, and the file as both
// channel files; before that, the roads of furtherMeasures and labelImage.
int stackFile(const std::uint8_t* data, std::size_t size);

// By the names of the folders of fuzz/regressions ("whole-road", "tiff", "jpeg", "png", "bmp",
// "cli", "measures", "labels", "stack"); nullptr for any other.
Harness harnessNamed(std::string_view name);

}  // namespace pv::fuzz
