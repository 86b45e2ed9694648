#pragma once

// Runs the command-line program through the shell, as a user or a script would.

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace pv::test {

struct CliRun {
    int status = -1;
    std::string out, err;
};

// The parts of text between separators; a row of a table that ends in an empty cell (a tab at
// its end) keeps that cell.
inline std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    if (separator == '\t' && !text.empty() && text.back() == '\t') {
        parts.push_back("");
    }
    return parts;
}

inline std::string slurp(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline std::string shellQuoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

// Standard output and error pass through files in scratch; from cwd when one is given.
inline CliRun runCli(const std::string& program, const std::vector<std::string>& args,
                     const std::filesystem::path& scratch, const std::filesystem::path& cwd = {}) {
    std::string cmd = cwd.empty() ? "" : "cd " + shellQuoted(cwd.string()) + " && ";
    cmd += shellQuoted(program);
    for (const std::string& a : args) {
        cmd += " " + shellQuoted(a);
    }
    const auto out = scratch / "stdout", err = scratch / "stderr";
    cmd += " >" + shellQuoted(out.string()) + " 2>" + shellQuoted(err.string());
    const int raw = std::system(cmd.c_str());
    CliRun r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return r;
}

}  // namespace pv::test
