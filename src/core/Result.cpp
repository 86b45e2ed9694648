#include "core/Result.h"

#include "core/Localization.h"

namespace pv {

std::string Error::message() const {
    if (writing) {
        return tr("cannot write %1: %2", {file, reason});
    }
    return file.empty() ? reason : file + ": " + reason;
}

}  // namespace pv
