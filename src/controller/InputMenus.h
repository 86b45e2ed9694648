#pragma once

#include "controller/CellLabels.h"
#include "controller/PixmeraVeltroController.h"
#include "controller/StackBrowser.h"

namespace pv {

// Enabled states of the menu items for masks, labels and stacks.
struct InputMenuStates {
    bool mask = false;
    bool clearMask = false;
    bool labels = false;
    bool clearLabels = false;
    bool nextSlice = false;
    bool previousSlice = false;
};

InputMenuStates inputMenuStates(const PixmeraVeltroController& controller,
                                const StackBrowser& stack, const CellLabels& labels);

}  // namespace pv
