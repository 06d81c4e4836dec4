// A test's folder of its own, and the contents of files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// A folder that every user may write to, removed at the end with everything in it.
class Scratch {
public:
    Scratch() {
        folder = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "testXXXXXX";
        folder = mkdtemp(folder.data());
        std::filesystem::permissions(folder, std::filesystem::perms::all);
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& path() const { return folder; }
    std::string file(const std::string& name) const { return folder + "/" + name; }
    std::string read(const std::string& name) const { return contentsOf(file(name)); }
    // Writes a file; returns its path.
    std::string write(const std::string& name, const std::string& contents) const {
        std::ofstream(file(name), std::ios::binary) << contents;
        return file(name);
    }
    // Writes a shell script, by default an executable one; returns its path.
    std::string script(const std::string& name, const std::string& text, unsigned mode = 0777) const {
        std::filesystem::permissions(write(name, "#!/bin/sh\n" + text + '\n'), std::filesystem::perms(mode));
        return file(name);
    }

private:
    std::string folder;
};
