#include <render/gpu/ShaderLibrary.h>

#include <map>
#include <system_error>

namespace Render::ShaderLibrary {

std::string normalizedPath(std::string_view path) {
    std::string normalized;
    normalized.reserve(path.size());
    for (const char c : path) {
        if (c != '/' || (!normalized.empty() && normalized.back() != '/')) {
            normalized.push_back(c);
        }
    }
    if (!normalized.empty() && normalized.back() == '/') {
        normalized.pop_back();
    }
    return normalized;
}

const EmbeddedFile* find(const std::string& path) {
    static const std::map<std::string_view, const EmbeddedFile*> table = [] {
        std::map<std::string_view, const EmbeddedFile*> entries;
        for (const EmbeddedFile& file : embeddedFiles()) {
            entries.emplace(file.path, &file);
        }
        return entries;
    }();
    const auto found = table.find(normalizedPath(path));
    return found == table.end() ? nullptr : found->second;
}

std::string_view content(const std::string& path) {
    const EmbeddedFile* file = find(path);
    if (file == nullptr || file->data == nullptr) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory), path);
    }
    return {reinterpret_cast<const char*>(file->data), file->size};
}

}  // namespace Render::ShaderLibrary
