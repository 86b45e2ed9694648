#pragma once

#include <string>

namespace pv::test {

// The report of the 2 x 2 reference picture (100,0,0) (0,50,0) (100,50,0) (0,0,0), pair red-green,
// every coefficient ticked, Calculate pressed, no scatter-gram region.
inline const std::string kReferenceReport =
    "Pixel Information\n\tImage ROI\tScatter Gram ROI\n\tCount\t%\tCount\t%\n"
    "Red:\t1\t25.00\t--\t--\nGreen:\t1\t25.00\t--\t--\nYellow:\t1\t25.00\t--\t--\n"
    "Total:\t3\t75.00\t--\t--\n\n"
    "Coefficients Calculations - Current Image ROI\nRr\t-0.5000\nR\t0.5000\nk1\t0.2500\n"
    "k2\t1.0000\nm1\t0.5000\nm2\t0.5000\n\n"
    "Coefficients Calculations - Scatter Gram ROI\nM1\t\nM2\t\n\n";

}  // namespace pv::test
