#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "image/ImageRecords.h"

namespace pv {

// One image document type the program declares: its extensions and its type codes.
struct DocumentType {
    std::vector<std::string> extensions;
    std::vector<std::string> typeCodes;
    bool isImage = true;
};

// The program's own declared document types, in declaration order.
const std::vector<DocumentType>& declaredDocumentTypes();

// Extensions of all image types, then their type codes wrapped as "'CODE'". An empty result
// leaves `previous` in place.
std::vector<std::string> loadSupportedFileTypes(const std::vector<DocumentType>& declared,
                                                const std::vector<std::string>& previous);

// File facts gathered before an image is loaded. Without a path the facts are "none" and 0 KB.
void setImageInfoNamePath(ImageFileInfo& info, const std::optional<std::string>& path);
void setImageFileSizeInKB(ImageFileInfo& info, const std::optional<std::string>& path);
// A file without an extension takes the type its content reveals, through its type code.
void setImageFileType(ImageFileInfo& info, const std::vector<std::string>& supportedImageFileTypes,
                      const std::optional<std::string>& path);

std::string getImageType(std::string_view extension);
std::string getHFSFileType(const std::vector<std::string>& supportedImageFileTypes,
                           std::string_view quotedTypeCode);

}  // namespace pv
