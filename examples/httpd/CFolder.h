// The folder that is served.
#ifndef HTTPD_CFOLDER_H
#define HTTPD_CFOLDER_H

#include <filesystem>
#include <optional>
#include <string>

class CFolder
{
public:
    // Throws std::filesystem::filesystem_error when there is no such folder.
    explicit CFolder(const std::string& root) : m_Root(std::filesystem::canonical(root)) {}

    // The regular file that the target of a request names; "index.html" for a folder. Nothing where there is none, or
    // where it lies outside, by whatever way: dots, encoded dots, links.
    std::optional<std::filesystem::path> Find(const std::string& target) const;

    // By the file's extension.
    static const char* GetType(const std::filesystem::path& file);

private:
    std::filesystem::path m_Root;
};

#endif
