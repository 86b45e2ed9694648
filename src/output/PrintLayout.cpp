#include "output/PrintLayout.h"

#include <algorithm>

namespace pv {

Rect printPlacement(Size picture, Size area) {
    float scale = 0.0f;
    if (picture.width > 0.0f && picture.height > 0.0f && area.width > 0.0f && area.height > 0.0f) {
        scale = std::min({1.0f, area.width / picture.width, area.height / picture.height});
    }
    const Size placed{picture.width * scale, picture.height * scale};
    return Rect{{(area.width - placed.width) / 2.0f, (area.height - placed.height) / 2.0f}, placed};
}

}  // namespace pv
