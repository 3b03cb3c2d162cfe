// What scripts get: one JSON object on standard output.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>

namespace card {

using Json = nlohmann::ordered_json;

inline void PrintJson(const Json& json) {
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

}  // namespace card
