#include "monitor/page_files.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

namespace {

namespace fs = std::filesystem;

// clang-format off
constexpr struct { const char* extension; const char* type; } kTypes[] = {
    {".html",        "text/html; charset=utf-8"},
    {".js",          "text/javascript; charset=utf-8"},
    {".css",         "text/css; charset=utf-8"},
    {".json",        "application/json"},
    {".map",         "application/json"},
    {".webmanifest", "application/manifest+json"},
    {".svg",         "image/svg+xml"},
    {".png",         "image/png"},
    {".ico",         "image/x-icon"},
    {".woff2",       "font/woff2"},
    {".wasm",        "application/wasm"},
    {".txt",         "text/plain; charset=utf-8"},
};
// clang-format on

std::string type_of(const fs::path& file) {
    for (const auto& known : kTypes) {
        if (file.extension() == known.extension) {
            return known.type;
        }
    }
    return "application/octet-stream";
}

}  // namespace

PageFiles::PageFiles(const std::string& directory) {
    std::error_code error;
    fs::recursive_directory_iterator entries(directory, error);
    for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
        const fs::path& path = entries->path();
        std::error_code ignored;
        if (entries->symlink_status(ignored).type() != fs::file_type::regular) {
            continue;
        }
        std::ifstream in(path, std::ios::binary);
        PageFile file{{std::istreambuf_iterator<char>(in), {}}, type_of(path), {}};
        file.tag = '"' + std::to_string(std::hash<std::string>()(file.content)) + '"';
        files_['/' + path.lexically_relative(directory).generic_string()] = std::move(file);
    }
}

const PageFile* PageFiles::find(const std::string& path) const {
    const auto found = files_.find(path == "/" ? "/index.html" : path);
    return found == files_.end() ? nullptr : &found->second;
}
