#pragma once

#include <string>

namespace kiv {

// The shortest decimal text that reads back as the same double, always with
// a fraction or an exponent: 1.0, 0.25, 1e-05, 1e+16, -0.5. Fixed notation
// when the decimal exponent is in [-4, 16), scientific otherwise (the same
// text as Python's repr of a float). "inf", "-inf" and "nan" otherwise.
std::string shortestDoubleText(double value);

}  // namespace kiv
