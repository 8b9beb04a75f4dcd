#pragma once

#include <string>

namespace quillbeam {

/// The shortest decimal text that reads back as the same number, with a fraction or an exponent: "0.25", "3.0".
std::string decimal(double number);

/// Rounded to so many decimals: "10.000000".
std::string fixedPoint(double number, int decimals);

/// "true" / "false".
std::string truth(bool value);

}  // namespace quillbeam
