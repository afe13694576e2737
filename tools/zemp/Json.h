// Results for machines.
#ifndef ZEMP_JSON_H
#define ZEMP_JSON_H

#include <nlohmann/json.hpp>
#include <ostream>

namespace zemp {

// Texts in images may be anything; what is no UTF-8 is replaced.
inline void printJson(const nlohmann::json& json, std::ostream& out) {
    out << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

} // namespace zemp

#endif
