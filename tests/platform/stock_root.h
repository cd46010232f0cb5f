#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/* A folder that replaces "/" in the stock platform for the whole test program, created before main and removed with the
 * process. Every test writes the files it needs, by their plain paths. */
class TStockRoot {
public:
    TStockRoot()
    {
        char name[] = "/tmp/velomond_root_XXXXXX";
        if (mkdtemp(name) == nullptr)
            abort();
        m_folder = name;
        setenv("VELOMOND_ROOT", (m_folder + "//").c_str(), 1);
        for (const char *path : {"/bin", "/etc"}) // the shell, and what is everywhere
            link(path, path);
    }
    ~TStockRoot() { remove(""); }

    std::string real(const std::string &path) const { return m_folder + path; }
    void folder(const std::string &path) const { std::filesystem::create_directories(real(path)); }
    void write(const std::string &path, const std::string &text) const
    {
        std::ofstream(in_its_folder(path), std::ios::binary) << text;
    }
    std::string read(const std::string &path) const
    {
        std::ifstream file(real(path));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /* A program, as a shell script. */
    void tool(const std::string &path, const std::string &script) const
    {
        write(path, "#!/bin/sh\n" + script);
        std::filesystem::permissions(real(path), std::filesystem::perms::owner_all);
    }
    void link(const std::string &target, const std::string &path) const
    {
        std::filesystem::create_symlink(target, in_its_folder(path));
    }
    void remove(const std::string &path) const { std::filesystem::remove_all(real(path)); }

private:
    std::string in_its_folder(const std::string &path) const // which is created
    {
        std::filesystem::create_directories(std::filesystem::path(real(path)).parent_path());
        return real(path);
    }
    std::string m_folder;
};

inline const TStockRoot g_stock_root;
