#include "image/FileFacts.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <system_error>

#include "core/Localization.h"
#include "image/ImageFile.h"
#include "image/Normalization.h"

namespace pv {

const std::vector<DocumentType>& declaredDocumentTypes() {
    static const std::vector<DocumentType> types = {
        {{"jpg", "jpeg", "JPG", "JPEG"}, {"JPEG"}, true},
        {{"tif", "tiff", "TIF", "TIFF"}, {"TIFF"}, true},
        {{"pct", "pict", "PCT", "PICT"}, {"PICT"}, true},
        {{"bmp", "BMP"}, {"BMPf"}, true},
        {{"png", "PNG"}, {"PNGf"}, true},
    };
    return types;
}

std::vector<std::string> loadSupportedFileTypes(const std::vector<DocumentType>& declared,
                                                const std::vector<std::string>& previous) {
    std::vector<std::string> extensions;
    std::vector<std::string> codes;
    for (const DocumentType& type : declared) {
        if (!type.isImage) {
            continue;
        }
        extensions.insert(extensions.end(), type.extensions.begin(), type.extensions.end());
        codes.insert(codes.end(), type.typeCodes.begin(), type.typeCodes.end());
    }
    for (const std::string& code : codes) {
        extensions.push_back("'" + code + "'");
    }
    return extensions.empty() ? previous : extensions;
}

void setImageInfoNamePath(ImageFileInfo& info, const std::optional<std::string>& path) {
    if (path) {
        const std::filesystem::path p(*path);
        info.filePath = p.parent_path().string();
        info.fileName = p.filename().string();
    } else {
        info.filePath.reset();
        info.fileName.reset();
    }
    setImageFileSizeInKB(info, path);
}

void setImageFileSizeInKB(ImageFileInfo& info, const std::optional<std::string>& path) {
    info.fileSizeKB = 0;
    if (!path) {
        return;
    }
    std::error_code ec;
    const std::uintmax_t bytes = std::filesystem::file_size(*path, ec);  // follows links
    if (!ec) {
        // Files beyond 2 TB would not fit the field; they show its largest value.
        info.fileSizeKB = std::int32_t(
            std::min<std::uintmax_t>(bytes / 1024, std::numeric_limits<std::int32_t>::max()));
    }
}

void setImageFileType(ImageFileInfo& info, const std::vector<std::string>& supportedImageFileTypes,
                      const std::optional<std::string>& path) {
    if (!path) {
        info.fileType.reset();
        return;
    }
    const std::string dotted = std::filesystem::path(*path).extension().string();
    if (!dotted.empty()) {
        const std::string extension = dotted.substr(1);
        info.fileType = fileIsValidImageType(supportedImageFileTypes, extension)
                            ? getImageType(extension)
                            : tr("Unknown");
        return;
    }
    // No type codes on this system: the content stands in for the code it would carry.
    const char* code = nullptr;
    switch (imageKindOfFile(*path)) {
        case ImageKind::TIFF:
            code = "'TIFF'";
            break;
        case ImageKind::JPEG:
            code = "'JPEG'";
            break;
        case ImageKind::PNG:
            code = "'PNGf'";
            break;
        case ImageKind::BMP:
            code = "'BMPf'";
            break;
        case ImageKind::Unknown:
            break;
    }
    info.fileType = code ? getHFSFileType(supportedImageFileTypes, code) : tr("Unknown");
}

std::string getImageType(std::string_view e) {
    if (e == "jpg" || e == "jpeg" || e == "JPG" || e == "JPEG") {
        return tr("JPEG Image");
    }
    if (e == "tif" || e == "tiff" || e == "TIF" || e == "TIFF") {
        return tr("TIFF Image");
    }
    if (e == "pct" || e == "pict" || e == "PCT" || e == "PICT") {
        return tr("PICT Image");
    }
    if (e == "bmp" || e == "BMP") {
        return tr("BMP Image");
    }
    return tr("Unknown");
}

std::string getHFSFileType(const std::vector<std::string>& supportedImageFileTypes,
                           std::string_view quotedTypeCode) {
    const auto found =
        std::find(supportedImageFileTypes.begin(), supportedImageFileTypes.end(), quotedTypeCode);
    if (found == supportedImageFileTypes.end() || found->empty()) {
        return tr("Unknown");
    }
    return tr(found->substr(1, 4) + " Image");
}

}  // namespace pv
