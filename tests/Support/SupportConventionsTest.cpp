// The shared helpers every record and view leans on: colour hex forms, time labels, the JSON
// conventions, atomic writes and the Unicode text rules.
#include "Support/AtomicFile.h"
#include "Support/Color.h"
#include "Support/HalvaneError.h"
#include "Support/Json.h"
#include "Support/Localization.h"
#include "Support/UnicodeText.h"
#include "Support/TimeFormat.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

TEST(ColorHex, SixDigitsWithOptionalHashElseGrey) {
    EXPECT_EQ(Color::fromHex("  #FF8000\n"), (Color{1, 128 / 255.0, 0, 1}));
    EXPECT_EQ(Color::fromHex("ff8000"), Color::fromHex("#FF8000"));
    const Color grey{0.5, 0.5, 0.5, 1};
    for (const char* bad : {"", "#", "#FFF", "#FF80001", "##FF8000", "#GG8000", "# FF8000"}) EXPECT_EQ(Color::fromHex(bad), grey) << bad;
    EXPECT_EQ((Color{1, 0.5, 0.001, 0.3}).hexString(), "#FF8000");
    EXPECT_EQ(Color::fromHex("#12AbEf").hexString(), "#12ABEF");
}

TEST(TimeFormat, TruncatesTenthsAndClampsNegatives) {
    EXPECT_EQ(formatTime(-4), "0:00");
    EXPECT_EQ(formatTime(59.99), "0:59");
    EXPECT_EQ(formatTime(59.99, true), "0:59.9");
    EXPECT_EQ(formatTime(61.25, true), "1:01.2");
    EXPECT_EQ(formatTime(3600), "60:00");
}

TEST(JsonConventions, ShapesOfGeometryDatesAndUuids) {
    EXPECT_EQ(dumpJson(toJson(Rect{1, 2, 3, 4})), "[[1.0,2.0],[3.0,4.0]]");
    Rect r;
    fromJson(parseJson("[[1,2],[3,4]]"), r);
    EXPECT_EQ(r, (Rect{1, 2, 3, 4}));
    EXPECT_THROW(fromJson(parseJson("[1,2,3,4]"), r), JsonDecodeError);
    Date d;
    fromJson(parseJson("\"2024-05-01T09:30:00.75+02:00\""), d);
    EXPECT_EQ(dumpJson(toJson(d)), "\"2024-05-01T07:30:00Z\"");
    // Dates the clock can't hold (it spans about 1678 to 2261) read as no date at all.
    EXPECT_FALSE(parseIso8601("1013-01-15T10:20:30Z"));
    EXPECT_FALSE(parseIso8601("9999-12-31T23:59:59Z"));
    EXPECT_TRUE(parseIso8601("1970-01-01T00:00:00Z"));
    auto u = Uuid::parse("6f9619ff-8b86-d011-b42d-00c04fc964ff");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->string(), "6F9619FF-8B86-D011-B42D-00C04FC964FF");
    int whole = 0;
    fromJson(parseJson("3.0"), whole);
    EXPECT_EQ(whole, 3);
    EXPECT_THROW(fromJson(parseJson("3.5"), whole), JsonDecodeError);
}

TEST(JsonConventions, TaggedValuesNeedExactlyOneKey) {
    Json solid = parseJson(R"({"solid":{"_0":"#000000"}})");
    auto t = decodeTagged(solid);  // points into `solid`
    EXPECT_EQ(t.caseName, "solid");
    EXPECT_EQ(*t.payload, "#000000");
    try {
        decodeTagged(parseJson(R"({"a":{"_0":1},"b":{"_0":2}})"));
        FAIL();
    } catch (const JsonDecodeError& e) {
        EXPECT_STREQ(e.what(), "Invalid number of keys found, expected one.");
    }
    EXPECT_THROW(decodeTagged(parseJson("{}")), JsonDecodeError);
    EXPECT_EQ(dumpJson(encodeTagged("image", "background.png")), R"({"image":{"_0":"background.png"}})");
}

TEST(JsonConventions, LenientKeysKeepDefaultsAndOptionalsStayOut) {
    Json j = parseJsonObject(R"({"n":"7","m":null,"k":4})");
    JsonObjectReader r(j);
    int n = 1, m = 2, k = 3, missing = 5;
    EXPECT_FALSE(r.lenient("n", n));
    EXPECT_FALSE(r.lenient("m", m));
    EXPECT_TRUE(r.lenient("k", k));
    EXPECT_FALSE(r.lenient("absent", missing));
    EXPECT_EQ((std::array{n, m, k, missing}), (std::array{1, 2, 4, 5}));
    EXPECT_THROW(r.required("absent", n), JsonDecodeError);
    Json out = Json::object();
    putOptional(out, "x", std::optional<int>{});
    EXPECT_EQ(dumpJson(out), "{}");
    EXPECT_THROW(parseJsonObject("[]"), JsonDecodeError);
}

TEST(AtomicFile, ReplacesWholeAndLeavesNothingBehindOnFailure) {
    test::TemporaryDirectory dir;
    fs::path file = dir / "record.json";
    writeFileAtomically(file, "first");
    writeFileAtomically(file, "second");
    EXPECT_EQ(readFile(file), "second");
    EXPECT_THROW(writeFileAtomically(dir / "missing" / "record.json", "x"), HalvaneError);
    fs::create_directory(dir / "occupied");
    EXPECT_THROW(writeFileAtomically(dir / "occupied", "x"), HalvaneError);
    int entries = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(dir.path())) ++entries;
    EXPECT_EQ(entries, 2);  // the record and the folder: no temporary left over
    try {
        readFile(dir / "nope.json");
        FAIL();
    } catch (const HalvaneError& e) {
        EXPECT_NE(std::string(e.what()).find("nope.json"), std::string::npos);
    }
}

TEST(UnicodeText, UnicodeWhitespaceAndControlCharacters) {
    EXPECT_EQ(UnicodeText::trimmingWhitespaceAndNewlines("\u2028 \tName\u00A0\r\n"), "Name");
    EXPECT_EQ(UnicodeText::trimmingWhitespaceAndNewlines("   "), "");
    EXPECT_EQ(UnicodeText::trimmingWhitespaceAndNewlines("a b"), "a b");
    EXPECT_TRUE(UnicodeText::containsControlCharacter("a\x7F"));
    EXPECT_TRUE(UnicodeText::containsControlCharacter("a\u200Eb"));   // left-to-right mark, a format character
    EXPECT_TRUE(UnicodeText::containsControlCharacter("\xC2\x85"));   // next line, C1
    EXPECT_TRUE(UnicodeText::containsControlCharacter("\xE2\x28\xA1"));  // not UTF-8
    EXPECT_FALSE(UnicodeText::containsControlCharacter("Café ☕ 🎬"));
}

TEST(LocalizationStrings, KeysStandForThemselvesUntilTranslated) {
    EXPECT_EQ(Localization::string("no.such.key"), "no.such.key");
    EXPECT_NE(Localization::string("recording.rename.invalidName"), "recording.rename.invalidName");
}

}  // namespace

#include "Support/UserDirectories.h"

#include <cstdlib>
#include <fstream>

namespace {

// Sets environment variables for one test and restores them after.
class ScopedEnvironment {
public:
    void set(const char* name, const std::string& value) {
        const char* old = std::getenv(name);
        saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        setenv(name, value.c_str(), 1);
    }
    void unset(const char* name) {
        const char* old = std::getenv(name);
        saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        unsetenv(name);
    }
    ~ScopedEnvironment() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            if (it->second) setenv(it->first.c_str(), it->second->c_str(), 1);
            else unsetenv(it->first.c_str());
        }
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(UserDirectories, FollowTheXdgConventions) {
    halvane::test::TemporaryDirectory home;
    ScopedEnvironment env;
    env.set("HOME", home.path().string());
    env.unset("XDG_DATA_HOME");
    env.unset("XDG_CONFIG_HOME");
    env.unset("XDG_VIDEOS_DIR");
    EXPECT_EQ(halvane::UserDirectories::data(), home.path() / ".local/share");
    EXPECT_EQ(halvane::UserDirectories::videos(), home.path() / "Videos");
    fs::create_directories(home / ".config");
    std::ofstream(home / ".config/user-dirs.dirs") << "# written by xdg-user-dirs-update\nXDG_VIDEOS_DIR=\"$HOME/Filme\"\n";
    EXPECT_EQ(halvane::UserDirectories::videos(), home.path() / "Filme");
    env.set("XDG_DATA_HOME", "relative/ignored");
    EXPECT_EQ(halvane::UserDirectories::data(), home.path() / ".local/share");
}

}  // namespace
