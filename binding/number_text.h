// How numbers are written in documents, shared by the binding's serialization and the streaming
// writer: plain decimal notation, never an exponent, the fewest digits that read back to the same
// double, -0 as 0. A number that is not finite has no written form.
#pragma once

#include <string>

namespace Morvek::UBL2 {

// `value` must be finite.
std::string plain_decimal(double value);

// The refusal of a NaN or an infinity; `place` names the element ("cbc:PriceAmount") or is empty.
std::wstring unwritable_number_message(double value, const std::wstring& place);

}  // namespace Morvek::UBL2
