#include "appliance/panel/access/private_file.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/access/accounts.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/tokens.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <vector>

using testing::HasSubstr;

namespace panel {
namespace {

std::string modeOf(const std::string& path) {
    struct stat status {};
    std::array<char, 8> text{};
    if (stat(path.c_str(), &status) != 0)
        return "missing";
    std::snprintf(text.data(), text.size(), "%03o", status.st_mode & 0777U);
    return text.data();
}

class PanelPrivateFile : public OperatingTest {
protected:
    std::string file_ = (root / "etc/decoder/secret").string();

    std::string whyNotRead() const {
        try {
            readPrivateFile(file_);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "it was read";
    }
};

TEST_F(PanelPrivateFile, IsReadableByItsOwnerOnly) {
    umask(0);
    writePrivateFile(file_, "one");
    writePrivateFile(file_, "two");
    EXPECT_EQ(readPrivateFile(file_), "two");
    EXPECT_EQ(modeOf(file_), "600");
    const auto entries = std::filesystem::directory_iterator(root / "etc/decoder");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "nothing unfinished stays";
}

TEST_F(PanelPrivateFile, WhatAKilledWriterLeftIsRemovedAfterAMinute) {
    const std::string left = file_ + ".0123456789abcdef";
    const std::string fresh = file_ + ".fedcba9876543210";
    const std::string other = file_ + ".0123456789abcdeg";
    for (const std::string& name : {left, fresh, other})
        std::ofstream(name) << "half a secr";
    for (const std::string& name : {left, other})
        std::filesystem::last_write_time(name, std::filesystem::file_time_type::clock::now() -
                                                   std::chrono::minutes(2));
    writePrivateFile(file_, "one");
    EXPECT_EQ(modeOf(left), "missing");
    EXPECT_NE(modeOf(fresh), "missing") << "another writer may still need it";
    EXPECT_NE(modeOf(other), "missing") << "not a name that a writer uses";
}

TEST_F(PanelPrivateFile, MissingFileIsEmpty) {
    EXPECT_EQ(readPrivateFile(file_), "");
}

TEST_F(PanelPrivateFile, IsNotReadWhenOthersMayReadIt) {
    writePrivateFile(file_, "one");
    chmod(file_.c_str(), 0640);
    EXPECT_THAT(whyNotRead(), HasSubstr("its mode has to be 0600"));
}

TEST_F(PanelPrivateFile, IsNotReadThroughALinkOrFromAFolder) {
    writePrivateFile(file_ + "2", "one");
    std::filesystem::create_symlink(file_ + "2", file_);
    EXPECT_THAT(whyNotRead(), HasSubstr(file_));
    std::filesystem::remove(file_);
    std::filesystem::create_directory(file_);
    EXPECT_THAT(whyNotRead(), HasSubstr(file_));
}

TEST_F(PanelPrivateFile, IsNotReadWhenItIsTooLarge) {
    writePrivateFile(file_, std::string(1024 * 1024, 'a'));
    EXPECT_EQ(readPrivateFile(file_).size(), 1024U * 1024);
    writePrivateFile(file_, std::string(1024 * 1024 + 1, 'a'));
    EXPECT_THAT(whyNotRead(), HasSubstr("too large"));
}

TEST_F(PanelPrivateFile, FailedWriteLeavesTheOldFile) {
    EXPECT_THROW(writePrivateFile((root / "nowhere/file").string(), "one"), std::system_error);
    std::filesystem::create_directory(file_);
    EXPECT_THROW(writePrivateFile(file_, "one"), std::system_error) << "a folder can't be replaced";
    const auto entries = std::filesystem::directory_iterator(root / "etc/decoder");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(PanelPrivateFile, FolderIsForItsOwnerOnly) {
    const std::string folder = (root / "run/decoder/panel").string();
    std::filesystem::create_directory(folder);
    chmod(folder.c_str(), 0755);
    makePrivateFolder(folder);
    EXPECT_EQ(modeOf(folder), "700");
    EXPECT_THROW(makePrivateFolder((root / "no/such/folder").string()), std::system_error);
    writePrivateFile(file_, "a file");
    EXPECT_THROW(makePrivateFolder(file_), std::system_error);
}

TEST_F(PanelPrivateFile, LockIsHeldByOneOnly) {
    std::atomic<int> inside{0};
    std::atomic<int> rounds{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 20; ++round) {
                const PrivateFileLock lock(file_);
                EXPECT_EQ(++inside, 1);
                std::this_thread::yield();
                --inside;
                ++rounds;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(rounds, 160);
    EXPECT_EQ(modeOf(file_ + ".lock"), "600");
}

TEST_F(PanelPrivateFile, LockThatIsKeptIsAnErrorAfterAWhile) {
    const PrivateFileLock kept(file_);
    try {
        const PrivateFileLock second(file_);
        FAIL() << "two hold the lock";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::timed_out);
        EXPECT_THAT(error.what(), HasSubstr(".lock"));
    }
    EXPECT_THROW(PrivateFileLock((root / "nowhere/file").string()), std::system_error);
}

// ---- Accounts and tokens -------------------------------------------------------------------------------------

class PanelAccounts : public OperatingTest {};

TEST_F(PanelAccounts, AreWrittenReplacedAndRemoved) {
    writeAccount({"anna", Role::Admin, "$y$1"});
    writeAccount({"vera", Role::Viewer, "$y$2"});
    writeAccount({"anna", Role::Operator, "$y$3"});
    const std::vector<Account> accounts = readAccounts();
    ASSERT_EQ(accounts.size(), 2U);
    EXPECT_EQ(accounts[0].name, "anna");
    EXPECT_EQ(accounts[0].role, Role::Operator);
    EXPECT_EQ(accounts[0].hash, "$y$3");
    removeAccount("anna");
    EXPECT_EQ(readAccounts().size(), 1U);
    EXPECT_EQ(modeOf(accountsFile()), "600");
    EXPECT_THROW(removeAccount("anna"), Refused);
    EXPECT_THROW(writeAccount({"an na", Role::Admin, "$y$1"}), Refused);
    EXPECT_THROW(writeAccount({"", Role::Admin, "$y$1"}), Refused);
    EXPECT_THROW(writeAccount({std::string(33, 'a'), Role::Admin, "$y$1"}), Refused);
}

TEST_F(PanelAccounts, LinesThatCantBeReadAreLeftOut) {
    writePrivateFile(accountsFile(), "# a comment\n\nanna admin\nvera queen $y$1\no/tto viewer $y$1\n"
                                     "otto viewer $y$1\n");
    ASSERT_EQ(readAccounts().size(), 1U);
    EXPECT_EQ(readAccounts()[0].name, "otto");
}

TEST_F(PanelAccounts, ManyChangesAtOnceAllStay) {
    std::vector<std::thread> threads;
    for (int number = 0; number < 20; ++number) {
        threads.emplace_back([number] {
            const std::string name = "a" + std::to_string(number);
            writeAccount({name, Role::Viewer, "$y$1"});
            Token token;
            token.name = name;
            token.role = Role::Viewer;
            addToken(token);
            if (number % 2 == 0) {
                removeAccount(name);
                removeToken(name);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(readAccounts().size(), 10U);
    EXPECT_EQ(readTokens().size(), 10U);
}

TEST_F(PanelAccounts, TokensAreWrittenOnceAndRemoved) {
    Token token;
    token.name = "door";
    token.purpose = Purpose::Alarm;
    token.expiry = 12345;
    const std::string text = addToken(token);
    ASSERT_EQ(readTokens().size(), 1U);
    EXPECT_EQ(readTokens()[0].expiry, 12345);
    EXPECT_EQ(tokenRole(readTokens()[0]), "alarm");
    EXPECT_NE(findToken(readTokens(), text, 1), nullptr);
    EXPECT_EQ(readPrivateFile(tokensFile()).find(text), std::string::npos);
    EXPECT_THROW(addToken(token), Refused);
    token.name = "a door";
    EXPECT_THROW(addToken(token), Refused);
    removeToken("door");
    EXPECT_THROW(removeToken("door"), Refused);
    EXPECT_TRUE(readTokens().empty());
}

} // namespace
} // namespace panel
