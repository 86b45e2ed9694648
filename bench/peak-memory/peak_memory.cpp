// Peak memory of the controller opening and analysing a large TIFF, as a multiple of its
// working bitmap.
#include <cstdlib>
#include <string>

#include "PeakMemory.h"
#include "controller/PixmeraVeltroController.h"

namespace {

int openAndAnalyse(const std::string& path) {
    pv::NullControllerPort port;
    pv::PixmeraVeltroController controller(port);
    controller.awakeFromNib();
    controller.applicationDidFinishLaunching();
    if (!controller.openImageFile(path)) {
        return 1;
    }
    controller.colocalizationWarningSheetDidEnd(pv::BackgroundWarningAnswer::CalculateAnyway);
    return controller.analysis().census.totalPixelCount > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    return pv::bench::reportPeakMemory(argc > 1 ? std::atoi(argv[1]) : 64, openAndAnalyse);
}
