// Reading the three package records: the lenient traps older or damaged files set, and the
// promise that what the program writes reads back as the same value.
#include "Model/EditSettings.h"
#include "Model/Project.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

template <class T>
T decoded(const char* text) {
    return Project::decode<T>(text);
}

TEST(RecordingMetaReading, EmptyObjectGivesTheDefaults) {
    auto m = decoded<RecordingMeta>("{}");
    EXPECT_EQ(m.version, 1);
    EXPECT_EQ(m.mode, "display");
    EXPECT_EQ(m.sourceName, "Display");
    EXPECT_DOUBLE_EQ(m.scale, 2.0);
    EXPECT_DOUBLE_EQ(m.fps, 60.0);
    EXPECT_FALSE(m.name);
}

TEST(RecordingMetaReading, OneIllTypedKeyKeepsEveryOther) {
    auto m = decoded<RecordingMeta>(
        R"({"fps":"30","duration":12.5,"pixelWidth":1280,"createdAt":"2024-05-01T09:30:00Z","version":7,
            "sources":[{"fileName":"screen.mov"},{"fileName":3,"name":"B"}]})");
    EXPECT_DOUBLE_EQ(m.fps, 60.0);
    EXPECT_DOUBLE_EQ(m.duration, 12.5);
    EXPECT_EQ(m.pixelWidth, 1280);
    EXPECT_EQ(m.version, 7);
    EXPECT_EQ(iso8601String(m.createdAt), "2024-05-01T09:30:00Z");
    ASSERT_EQ(m.sources.size(), 2u);
    EXPECT_EQ(m.sources[1].fileName, "screen.mov");  // lenient inside a source too
    EXPECT_EQ(m.sources[1].name, "B");
}

TEST(RecordingMetaReading, TopLevelThatIsNoObjectFails) {
    EXPECT_THROW(decoded<RecordingMeta>("[1,2]"), JsonDecodeError);
    EXPECT_THROW(decoded<RecordingMeta>("{\"fps\":"), JsonDecodeError);
}

TEST(RecordedEventsReading, OneBadElementEmptiesOnlyItsList) {
    auto e = decoded<RecordedEvents>(
        R"({"samples":[{"t":0,"x":0.1,"y":0.2},{"t":1,"x":0.3}],
            "clicks":[{"t":0.5,"x":0.4,"y":0.5,"button":0,"phase":"down"}],
            "keys":[{"t":1,"label":"A","modifiers":8}]})");
    EXPECT_TRUE(e.samples.empty());
    ASSERT_EQ(e.clicks.size(), 1u);
    EXPECT_EQ(e.keys.size(), 1u);
}

TEST(RecordedEventsReading, UnknownShapeIsAnArrowButAnUnknownPhaseEmptiesClicks) {
    auto e = decoded<RecordedEvents>(
        R"({"shapes":[{"t":0,"shape":"lasso"},{"t":1,"shape":"iBeam"}],
            "clicks":[{"t":0.5,"x":0.4,"y":0.5,"button":0,"phase":"down"},{"t":0.6,"x":0.4,"y":0.5,"button":0,"phase":"hold"}]})");
    ASSERT_EQ(e.shapes.size(), 2u);
    EXPECT_EQ(e.shapes[0].shape, CursorShape::arrow);
    EXPECT_EQ(e.shapes[1].shape, CursorShape::iBeam);
    EXPECT_TRUE(e.clicks.empty());

    auto numericShape = decoded<RecordedEvents>(R"({"shapes":[{"t":0,"shape":3}]})");
    EXPECT_TRUE(numericShape.shapes.empty());
}

TEST(RecordedEventsReading, LeftClickDownsKeepStoredOrder) {
    auto e = decoded<RecordedEvents>(
        R"({"clicks":[{"t":2,"x":0,"y":0,"button":0,"phase":"down"},{"t":1,"x":0,"y":0,"button":1,"phase":"down"},
                     {"t":2.1,"x":0,"y":0,"button":0,"phase":"up"},{"t":0.5,"x":0,"y":0,"button":0,"phase":"down","source":1}]})");
    auto downs = e.leftClickDowns();
    ASSERT_EQ(downs.size(), 2u);
    EXPECT_DOUBLE_EQ(downs[0].t, 2);
    EXPECT_EQ(downs[1].source, 1);
}

TEST(EditSettingsReading, LegacyClickKeysApplyOnlyWithoutTheNewOnes) {
    EXPECT_EQ(decoded<EditSettings>(R"({"clickRipples":false})").clickEffect, ClickEffect::none);
    EXPECT_EQ(decoded<EditSettings>(R"({"clickRipples":false,"clickEffect":"circle"})").clickEffect, ClickEffect::circle);
    EXPECT_EQ(decoded<EditSettings>(R"({"clickRipples":true,"clickEffect":"sparkle"})").clickEffect, ClickEffect::ripple);
    EXPECT_EQ(decoded<EditSettings>(R"({"clickSounds":true})").clickSound, ClickSoundKind::magicMouse);
    EXPECT_EQ(decoded<EditSettings>(R"({"clickSounds":false,"clickSound":"mxMaster"})").clickSound, ClickSoundKind::mxMaster);
    EXPECT_EQ(decoded<EditSettings>(R"({})").clickSound, ClickSoundKind::none);
}

TEST(EditSettingsReading, OneBadZoomEmptiesZoomsAndKeepsCuts) {
    auto s = decoded<EditSettings>(
        R"({"zooms":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","start":1,"end":2,"level":2,"target":[0.5,0.5]}],
            "cuts":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FE","start":3,"end":4}],"padding":0.2})");
    EXPECT_TRUE(s.zooms.empty());
    ASSERT_EQ(s.cuts.size(), 1u);
    EXPECT_DOUBLE_EQ(s.padding, 0.2);
}

TEST(EditSettingsReading, BackgroundWithTwoKeysOrAnUnknownCaseIsTheDefault) {
    EditSettings fresh;
    EXPECT_EQ(decoded<EditSettings>(R"({"background":{"gradient":{"_0":"g2"},"solid":{"_0":"#FF0000"}}})").background,
              fresh.background);
    EXPECT_EQ(decoded<EditSettings>(R"({"background":{"video":{"_0":"x"}}})").background, fresh.background);
    EXPECT_EQ(decoded<EditSettings>(R"({"background":{"solid":{"_0":"#FF0000"}}})").background,
              CanvasBackground::solid("#FF0000"));
}

TEST(EditSettingsTrim, BoundsKeepASpanAndAGapBeforeTheEnd) {
    EditSettings s;
    s.trimStart = 9.95;
    auto b = s.trimBounds(10);
    EXPECT_DOUBLE_EQ(b.lower, 9.9);
    EXPECT_DOUBLE_EQ(b.upper, 10);
    s.trimStart = 0;
    b = s.trimBounds(0.05);
    EXPECT_DOUBLE_EQ(b.lower, 0);
    EXPECT_DOUBLE_EQ(b.upper, 0.05);
    b = s.trimBounds(0);
    EXPECT_DOUBLE_EQ(b.lower, 0);
    EXPECT_DOUBLE_EQ(b.upper, 0.01);
    s.trimStart = -3;
    s.trimEnd = 20;  // beyond the recording
    b = s.trimBounds(8);
    EXPECT_DOUBLE_EQ(b.lower, 0);
    EXPECT_DOUBLE_EQ(b.upper, 8);
}

TEST(EditSettingsBackground, SwitchingRestoresFramingOnlyWhenBareAtAutoAspect) {
    EditSettings s;
    s.setShowBackground(false);
    EXPECT_DOUBLE_EQ(s.padding, 0);
    EXPECT_DOUBLE_EQ(s.cornerRadiusFraction, 0);
    s.setShowBackground(true);
    EXPECT_DOUBLE_EQ(s.padding, 0.07);
    EXPECT_DOUBLE_EQ(s.cornerRadiusFraction, 0.016);

    s.setShowBackground(false);
    s.canvasAspect = CanvasAspect::square;
    s.setShowBackground(true);
    EXPECT_DOUBLE_EQ(s.padding, 0);
    EXPECT_DOUBLE_EQ(s.cornerRadiusFraction, 0);

    EditSettings t;
    t.padding = 0.2;
    t.cornerRadiusFraction = 0;
    t.showBackground = false;
    t.setBackground(CanvasBackground::wallpaper("dunes"));
    EXPECT_TRUE(t.showBackground);
    EXPECT_DOUBLE_EQ(t.padding, 0.2);
    EXPECT_DOUBLE_EQ(t.cornerRadiusFraction, 0);
}

// Read -> write -> read gives equal values, and the written text is stable.
template <class T>
void expectRoundTrip(const std::string& text) {
    T first = Project::decode<T>(text);
    std::string written = Project::encode(first);
    T second = Project::decode<T>(written);
    EXPECT_EQ(first, second) << written;
    EXPECT_EQ(Project::encode(second), written);
}

TEST(RecordRoundTrip, EveryRecordReadsBackEqual) {
    expectRoundTrip<RecordingMeta>(
        R"({"version":2,"name":"Demo","mode":"windows","sourceName":"Two windows","createdAt":"2025-02-03T04:05:06Z",
            "duration":4.5,"pixelWidth":1280,"pixelHeight":800,"pointWidth":640,"pointHeight":400,"scale":2,"fps":30,
            "hasSystemAudio":true,"hasMicrophone":false,"hasCamera":true,"cameraStartOffset":-0.25,
            "sources":[{"fileName":"screen.mov","name":"A","startOffset":0.1},{"fileName":"screen-2.mov","name":"B"}]})");
    expectRoundTrip<RecordedEvents>(
        R"({"samples":[{"t":0,"x":0.1,"y":1.2}],"clicks":[{"t":1,"x":0.5,"y":0.5,"button":0,"phase":"up","source":1}],
            "keys":[{"t":2,"label":"⌘C","modifiers":8}],"shapes":[{"t":0,"shape":"operationNotAllowed"}],
            "focus":[{"t":0,"source":1}],"pointerSpace":[[0,0],[1920,1080]],
            "windowFrames":[[{"t":0,"frame":[[10,20],[300,200]]}],[]]})");
    expectRoundTrip<EditSettings>(
        R"({"canvasAspect":"social4x5","background":{"image":{"_0":"background.png"}},"showBackground":false,
            "zooms":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","start":1,"end":2,"level":2,"target":[0.25,0.75],"isAuto":true,"source":0}],
            "focusSwitches":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FA","start":0,"source":1}],
            "speeds":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FB","start":1,"end":3,"factor":2}],
            "cuts":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FC","start":3,"end":4}],"clipSplits":[1.5,2.5],
            "masks":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FD","start":0,"end":1,"rect":[[0.1,0.1],[0.2,0.2]],"style":"pixelate"}],
            "sourceCrop":[[0.1,0.2],[0.5,0.5]],"trimStart":0.5,"trimEnd":3.5,"musicFileName":"music.m4a",
            "transcriptionLocaleIdentifier":"en-US","webcamShape":"portrait","keystrokeMode":"allKeys"})");
    expectRoundTrip<Transcript>(
        R"({"locale":"en-US","cues":[{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","text":"Hello there.","start":0.5,"end":1.5,
            "words":[{"text":"Hello","start":0.5,"end":0.9},{"text":"there.","start":0.9,"end":1.5}]}]})");
}

TEST(RecordWriting, OptionalsAreLeftOutAndKeysSorted) {
    EditSettings s;
    std::string text = Project::encode(s);
    EXPECT_EQ(text.find("trimEnd"), std::string::npos);
    EXPECT_EQ(text.find("null"), std::string::npos);
    EXPECT_LT(text.find("\"audioDenoise\""), text.find("\"zooms\""));
    EXPECT_NE(text.find(R"("background":{"gradient":{"_0":"shots-gradient-1"}})"), std::string::npos);
    EXPECT_EQ(text.find("clickRipples"), std::string::npos);
}

}  // namespace
