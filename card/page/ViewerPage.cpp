#include "page/ViewerPage.h"

#include "text/Error.h"

namespace card {

extern const char kViewerPage[];  // viewer.html

namespace {

size_t Find(const std::string& page, const std::string& mark) {
    const size_t at = page.find(mark);
    if (at == std::string::npos) throw CardError("The page has no place for \"" + mark + "\"");
    return at;
}

void Replace(std::string& page, const std::string& mark, const std::string& text) {
    page.replace(Find(page, mark), mark.size(), text);
}

}  // namespace

std::string ViewerPage(const std::string& given, const std::string& origin) {
    std::string page = kViewerPage;
    Replace(page, "id=\"given\">null<", "id=\"given\">" + given + "<");
    if (!origin.empty()) Replace(page, "default-src 'none';", "default-src 'none'; connect-src " + origin + ";");
    return page;
}

size_t PlaceOfFootage(const std::string& page) {
    return Find(page, "<script type=\"text/plain\" id=\"wasm\">");
}

}  // namespace card
