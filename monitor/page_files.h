// The page's files, read once: what is asked for is looked up among their names, so that no path
// of a request ever reaches the file system.
#pragma once

#include <map>
#include <string>

struct PageFile {
    std::string content;
    std::string type;  // for the Content-Type header
    std::string tag;   // for the ETag header
};

class PageFiles {
  public:
    // All below the directory; none where there is no such directory. Links are not followed.
    explicit PageFiles(const std::string& directory);

    // By the path of a request: "/" is "/index.html". Null where there is none. Thread-safe.
    const PageFile* find(const std::string& path) const;
    bool empty() const { return files_.empty(); }

  private:
    std::map<std::string, PageFile> files_;
};
