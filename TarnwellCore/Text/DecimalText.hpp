#pragma once

// Doubles as decimal text, whatever the locale.

#include <string>

namespace tarnwell {

/// The shortest text that reads back to the same double. Plain decimals with at least one digit after the
/// point ("0.5", "1.0", "30.0") for magnitudes from 1e-04 up to, not including, 1e16; an exponent of at least
/// two digits otherwise ("1e-05", "1.5e+16"). "inf",
/// "-inf" and "nan" for what is not finite.
std::string decimalText(double value);

/// Appends `decimalText(value)` without another allocation.
void appendDecimalText(std::string& text, double value);

/// Appends what printf's "%.Nf" would print in the C locale; a negative number of decimals is none.
void appendFixedDecimals(std::string& text, double value, int decimals);

} // namespace tarnwell
