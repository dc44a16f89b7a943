#include "CFolder.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace fs = std::filesystem;

namespace
{

// Undoes percent-encoding (RFC 3986, 2.1). Nothing for a wrong one, or one that hides a NUL.
std::optional<std::string> Decode(const std::string& text)
{
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char character = text[i];
        if (character == '%') {
            if (i + 2 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[i + 1])) ||
                !std::isxdigit(static_cast<unsigned char>(text[i + 2])))
                return std::nullopt;
            character = static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        }
        if (character == '\0')
            return std::nullopt;
        decoded += character;
    }
    return decoded;
}

}  // namespace

std::optional<fs::path> CFolder::Find(const std::string& target) const
{
    if (target.empty() || target.front() != '/')
        return std::nullopt;
    const auto decoded = Decode(target.substr(0, target.find_first_of("?#")));
    if (!decoded)
        return std::nullopt;
    std::error_code error;
    fs::path file = fs::canonical(m_Root / fs::path(*decoded).relative_path(), error);
    if (!error && fs::is_directory(file, error))
        file = fs::canonical(file / "index.html", error);
    if (error || !fs::is_regular_file(file, error) || error)
        return std::nullopt;
    // The file's true path, links resolved, has to begin with the folder's.
    const bool inside = std::mismatch(m_Root.begin(), m_Root.end(), file.begin(), file.end()).first == m_Root.end();
    return inside ? std::optional<fs::path>(file) : std::nullopt;
}

const char* CFolder::GetType(const fs::path& file)
{
    static const std::map<std::string, const char*> types = {
        {".css", "text/css"},       {".html", "text/html; charset=utf-8"}, {".jpg", "image/jpeg"},
        {".js", "text/javascript"}, {".json", "application/json"},         {".png", "image/png"},
        {".svg", "image/svg+xml"},  {".txt", "text/plain; charset=utf-8"}};
    const auto found = types.find(file.extension().string());
    return found == types.end() ? "application/octet-stream" : found->second;
}
