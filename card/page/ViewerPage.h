// The page that shows a card in a browser (viewer/viewer.html), with something put into it.
#pragma once

#include <cstddef>
#include <string>

namespace card {

// `given`: JSON that the page begins with, without "<" (as JsonText writes it).  `origin`: the one address that the
// page may connect to; empty: none.
std::string ViewerPage(const std::string& given, const std::string& origin);

// Where script elements with footage can stand in it (see Footage.h).
size_t PlaceOfFootage(const std::string& page);

}  // namespace card
