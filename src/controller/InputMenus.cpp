#include "controller/InputMenus.h"

namespace pv {

InputMenuStates inputMenuStates(const PixmeraVeltroController& controller,
                                const StackBrowser& stack, const CellLabels& labels) {
    const bool picture = !controller.currentDisplayedImage().isEmpty();
    const bool browsing = picture && stack.active();
    return {.mask = picture,
            .clearMask = controller.mask() != nullptr,
            .labels = picture,
            .clearLabels = labels.shown(),
            .nextSlice = browsing && stack.slice() + 1 < stack.layout().slices,
            .previousSlice = browsing && stack.slice() > 0};
}

}  // namespace pv
