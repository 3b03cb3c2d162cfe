// Keeps what is written apart from the card it is taken from.
#pragma once

#include <string>

namespace card {

// Throws CardError (kUsage) when `out`, which need not exist yet, is the card itself or would lie on it: the same
// file or device, a place below the card's folder, or one on a file system that is mounted from the card.
void RequireApart(const std::string& card, const std::string& out);

}  // namespace card
