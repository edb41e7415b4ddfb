#include <fcntl.h>

#include "KatdUtil/IniUtils.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using KATD_SPACE::IniUtils;
using namespace katd_test;

class IniFile : public testing::Test {
protected:
    // The value of a key, or "-" if there is none.
    std::string query(const std::string& text, const char* section, const char* key, int size = 256) const {
        writeFile(path, text);
        IniUtils ini(path.c_str(), "r");
        char value[257] = "-";
        const int result = ini.QueryConfValue(section, key, value, size);
        EXPECT_EQ(result == -1, std::string("-") == value);
        return value;
    }

    TempDir dir;
    const std::string path = dir / "a.ini";
    CapturedMessages messages;
};

TEST_F(IniFile, FindsTheValueOfAKeyInItsSection) {
    for (const std::string text :
         {"[s]\n\t k \t= \t v \t\n", " \t[ \ts ] rest\nk=v\n", "[s]\r\nk = v\r\n",
          "k=0\n[ss]\nk=1\n[S]\nk=2\n[s\nk=3\n[s]\nk=v\n", "[s]\nkk=1\nk2=2\nk x=3\n=4\nk =v\nk=w\n",
          "[s]\n#k=1\n ;k=2\n\n \t\nk=v\n", "[s]\nk=v ; c # d\n", "[s]\nk=v#c;d\n"})
        EXPECT_EQ(query(text, "s", "k"), "v") << text;
    for (const char* text : {"[s]\nK=v\n", "[s]\nx=1\n [t]\n[s]\nk=v\n"})
        EXPECT_EQ(query(text, "s", "k"), "-") << text;
    // A line of 255 characters is whole; what follows them is judged as a line of its own.
    EXPECT_EQ(query("[s]\nk=" + std::string(252, 'v') + "\n", "s", "k"), std::string(252, 'v'));
    EXPECT_EQ(query("[s]\nx=" + std::string(253, 'x') + "k=v\n", "s", "k"), "v");
    EXPECT_EQ(query("[s]\nk=abcdef\n", "s", "k", 3), "abc");
    EXPECT_EQ(messages.texts(), Texts{});
}

TEST_F(IniFile, RefusesBadArgumentsAndMissingFiles) {
    const std::string longest(59, 'n'), tooLong(60, 'n');
    const std::string text = "[" + longest + "]\nk=v\n[" + tooLong + "]\nk=w\n";
    EXPECT_EQ(query(text, longest.c_str(), "k"), "v");
    EXPECT_EQ(query(text, tooLong.c_str(), "k"), "-");
    EXPECT_EQ(query(text, "s", "k", 257), "-");
    EXPECT_EQ(query(text, "", "k"), "-");
    EXPECT_EQ(messages.texts(),
              (Texts{"ERR lenth of section name should in [1, 59],but lenth of [" + tooLong + "] is [60] ",
                     "ERR lenth of value should in [1, 256], but input is 257",
                     "ERR Bad input arguments for QueryConfValue"}));
    EXPECT_EQ(IniUtils(path.c_str()).ModifyConfValue(tooLong.c_str(), "k", "v", ""), -1);
    EXPECT_EQ(IniUtils((dir / "missing").c_str()).ModifyConfValue("s", "k", "v", ""), -1);
    EXPECT_EQ(messages.texts().back(), "ERR fail to open ini file [" + dir / "missing" + "]");
}

// The corpus of the ini fuzzer has more of these.
TEST_F(IniFile, ChangesOnlyTheKeyInQuestion) {
    const std::string bytes("\0\x01\xFF", 3);
    const std::pair<std::string, std::string> cases[] = {
        {"[r]\nk=0\n[s]\n #k\n k = 1 ; old\r\nk=2\n[t]\nk=3",
         "[r]\nk=0\n[s]\n #k\nk = v\t;c\nk=2\n[t]\nk=3     "},
        {"[s]\n;" + bytes + "\nx=2\n\n [t]\nk=3\n", "[s]\n;" + bytes + "\nx=2\n\nk = v\t;c\n [t]\nk=3\n"},
        {"[s]\nx=2", "[s]\nx=2\nk = v\t;c\n"},
        {"[t]\nk=1", "[t]\nk=1\n\n[s]\t\t\t#Added by program\nk=v\t\t#c\n"}};
    for (const auto& [before, after] : cases) {
        writeFile(path, before);
        EXPECT_EQ(IniUtils(path.c_str()).ModifyConfValue("s", "k", "v", "c"), 0);
        EXPECT_EQ(readFile(path), after) << before;
    }
    EXPECT_EQ(messages.texts(), Texts{"DBG Can not find section [s]"});
}

TEST_F(IniFile, StaysAsItIsWhenItCannotBeRead) {
    writeFile(path, "[s]\nk=1\n");
    {
        const int writable = open(path.c_str(), O_WRONLY);
        const int next = dup(writable);
        close(next);
        IniUtils ini(path.c_str());
        ASSERT_EQ(dup2(writable, next), next);  // the descriptor of its stream
        EXPECT_EQ(ini.ModifyConfValue("s", "k", "v", "c"), -1);
        close(writable);
    }
    EXPECT_EQ(readFile(path), "[s]\nk=1\n");
}

}  // namespace
