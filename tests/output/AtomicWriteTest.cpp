#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <string>

#include "output/Export.h"
#include "output/TempFolder.h"

namespace pv {
namespace {

using test::inChild;
using test::namesIn;
using test::readFile;
using test::TempFolder;

std::string messageOf(const Status& status) {
    return status ? "OK" : status.error().message;
}

TEST(WriteFileAtomically, WritesAndReplacesLeavingOnlyTheTarget) {
    TempFolder folder;
    const std::string path = folder / "report.xls";
    ASSERT_TRUE(writeFileAtomically(path, "first"));
    ASSERT_TRUE(writeFileAtomically(path, std::string("second\0binary", 13)));
    EXPECT_EQ(readFile(path), std::string("second\0binary", 13));
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"report.xls"});

    ASSERT_TRUE(writeFileAtomically(path, ""));
    EXPECT_EQ(readFile(path), "");
}

TEST(WriteFileAtomically, PathWithoutFolderWritesIntoTheWorkingFolder) {
    TempFolder folder;
    const std::string result = inChild([&] {
        if (::chdir(folder.path().c_str()) != 0) {
            return std::string("chdir failed");
        }
        return messageOf(writeFileAtomically("plain.txt", "text"));
    });
    EXPECT_EQ(result, "OK");
    EXPECT_EQ(readFile(folder / "plain.txt"), "text");
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"plain.txt"});
}

TEST(WriteFileAtomically, NewFileHasOrdinaryPermissions) {
    for (mode_t mask : {mode_t(022), mode_t(027), mode_t(002)}) {
        TempFolder folder;
        const std::string path = folder / "r.txt";
        const std::string result = inChild([&] {
            ::umask(mask);
            return messageOf(writeFileAtomically(path, "x"));
        });
        ASSERT_EQ(result, "OK");
        struct stat st {};
        ASSERT_EQ(::stat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask) << "umask " << std::oct << mask;
    }
}

TEST(WriteFileAtomically, ReplacedFileKeepsItsPermissions) {
    TempFolder folder;
    const std::string path = folder / "r.txt";
    test::writeFile(path, "old");
    ::chmod(path.c_str(), 0600);
    ASSERT_TRUE(writeFileAtomically(path, "new"));
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// Each failure: the message names the file and the system's reason, the folder holds exactly
// what it held before, and an existing target keeps its old content.
TEST(WriteFileAtomically, FailuresLeaveNothingBehind) {
    struct Case {
        const char* name;
        const char* reason;
        bool targetExists;
        // Prepares the folder in the parent; answers the path to write.
        std::function<std::string(const TempFolder&)> prepare;
        // Runs in the child just before the write.
        std::function<bool()> restrict;
    };
    const auto readOnlyFolder = [](const TempFolder& f) {
        ::mkdir((f / "locked").c_str(), 0755);
        test::writeFile(f / "locked/existing.xls", "old report");
        ::chmod((f / "locked").c_str(), 0555);
        return f / "locked/existing.xls";
    };
    const std::vector<Case> cases = {
        {"missing folder", "No such file or directory", false,
         [](const TempFolder& f) { return f / "no-such-folder/report.xls"; }, [] { return true; }},
        {"read-only folder, new file", "Permission denied", false,
         [&](const TempFolder& f) {
             readOnlyFolder(f);
             return f / "locked/new.xls";
         },
         test::dropRoot},
        {"read-only folder, existing file", "Permission denied", true, readOnlyFolder,
         test::dropRoot},
        {"target is a folder", "Is a directory", false,
         [](const TempFolder& f) {
             ::mkdir((f / "report.xls").c_str(), 0755);
             return f / "report.xls";
         },
         [] { return true; }},
        {"write cut short", "File too large", true,
         [](const TempFolder& f) {
             test::writeFile(f / "existing.xls", "old report");
             return f / "existing.xls";
         },
         [] {
             // A file size limit makes write() fail part-way, as a full disk does.
             std::signal(SIGXFSZ, SIG_IGN);
             rlimit limit{};
             ::getrlimit(RLIMIT_FSIZE, &limit);
             limit.rlim_cur = 100;
             return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFolder folder;
        const std::string path = c.prepare(folder);
        const std::string parent = path.substr(0, path.rfind('/'));
        const auto before =
            std::filesystem::exists(parent) ? namesIn(parent) : std::set<std::string>{};
        const std::string message = inChild([&] {
            if (!c.restrict()) {
                return std::string("could not set up the failure");
            }
            return messageOf(writeFileAtomically(path, std::string(4096, 'n')));
        });
        EXPECT_EQ(message, "cannot write " + path + ": " + c.reason);
        if (std::filesystem::exists(parent)) {
            EXPECT_EQ(namesIn(parent), before);
        }
        if (c.targetExists) {
            EXPECT_EQ(readFile(path), "old report");
        }
    }
}

}  // namespace
}  // namespace pv
