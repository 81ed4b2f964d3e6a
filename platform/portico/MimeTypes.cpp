#include "platform/portico/MimeTypes.h"

#include "platform/config/Ascii.h"

#include <fstream>
#include <sstream>
#include <unordered_map>

namespace Portico {

namespace {

/// What stands behind the last dot of the last part of a path; empty where there is none.
std::string extensionOf(const std::string& fileName) {
    const std::size_t dot = fileName.find_last_of("./");
    if (dot == std::string::npos || fileName[dot] == '/')
        return "";
    return Config::lowerCase(fileName.substr(dot + 1));
}

} // namespace

struct MimeTypes::Tables {
    std::unordered_map<std::string, std::string> types;
    std::string fallback = "application/octet-stream";
};

MimeTypes& MimeTypes::the() {
    static MimeTypes* const instance = new MimeTypes;
    return *instance;
}

MimeTypes::MimeTypes() {
    auto* const filled = new Tables;
    filled->types = {
        {"x3d", "model/x3d+xml"},    {"x3db", "model/x3d+binary"}, {"x3dv", "model/x3d+vrml"},
        {"gltf", "model/gltf+json"}, {"glb", "model/gltf-binary"}, {"obj", "model/obj"},
        {"stl", "model/stl"},        {"html", "text/html"},        {"htm", "text/html"},
        {"txt", "text/plain"},       {"log", "text/plain"},        {"css", "text/css"},
        {"js", "text/javascript"},   {"json", "application/json"}, {"xml", "application/xml"},
        {"png", "image/png"},        {"jpeg", "image/jpeg"},       {"jpg", "image/jpeg"},
        {"gif", "image/gif"},        {"webp", "image/webp"},       {"svg", "image/svg+xml"},
        {"ico", "image/x-icon"},     {"wasm", "application/wasm"}, {"zip", "application/zip"},
        {"pdf", "application/pdf"},
    };
    std::ifstream file("/etc/mime.types");
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string type;
        std::string extension;
        words >> type;
        // The first of two types for one extension counts, and ours before all.
        while (words >> extension)
            filled->types.emplace(Config::lowerCase(extension), type);
    }
    tables = filled;
}

const std::string& MimeTypes::identify(const std::string& fileName) const {
    const auto type = tables->types.find(extensionOf(fileName));
    return type == tables->types.end() ? tables->fallback : type->second;
}

} // namespace Portico
