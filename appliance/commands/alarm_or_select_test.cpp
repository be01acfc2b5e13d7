#include "appliance/commands/alarm_or_select.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"

#include <libcommon/display.h>
#include <libcommon/events.h>
#include <libcommon/params.h>

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// This process is the supervisor of a temporary appliance: it owns the queue and reads what arrives there.
class AlarmOrSelect : public OperatingTest {
protected:
    AlarmOrSelect() { initEventQueue(); }
    ~AlarmOrSelect() override { removeEventQueue(); }

    void configureMode(const std::string& mode, const std::string& alarms = "yes") const {
        configure("[Decoder]\nSequenceMode = " + mode + "\nConnected = yes\n[Alarm]\nEnabled = " + alarms +
                  "\nDisplayTime = 20\n[Encoder.Gate]\nAddress = 127.0.0.1\n");
    }
    static void connect(bool connected) {
        ParamWrapper(1, true)["Decoder.Info.Connected"] = connected ? "yes" : "no";
    }

    // The next event; an EID_FLUSHCACHE when there was none.
    static Event next() {
        Event marker{};
        marker.id = EID_FLUSHCACHE;
        sendEvent(&marker);
        Event event{};
        waitEvent(&event);
        return event;
    }
};

TEST_F(AlarmOrSelect, RaisesAnAlarmInManualMode) {
    configureMode("manual");
    connect(true);
    const AlarmAnswer answer = alarmOrSelect(0, "Gate", "Person");
    EXPECT_FALSE(answer.selected);
    EXPECT_EQ(answer.sentence, "alarm raised for 0 \"Gate\"");
    const Event event = next();
    EXPECT_EQ(event.id, EID_ALARM);
    EXPECT_STREQ(reinterpret_cast<const char*>(event.payload), "Person");
    EXPECT_EQ(libcommon::osdText(2), "") << "the supervisor shows it";
}

TEST_F(AlarmOrSelect, SelectsInAutomaticMode) {
    configureMode("auto");
    connect(true);
    const AlarmAnswer answer =
        alarmOrSelect(0, "Gate", "Person 100%s at the gate, longer than an event carries");
    EXPECT_TRUE(answer.selected);
    EXPECT_THAT(answer.sentence, StartsWith("selected 0 \"Gate\""));
    EXPECT_EQ(next().id, EID_SELECT);
    EXPECT_EQ(libcommon::osdText(2), "ALARM: Gate: Person 100%s at the gate, longer than an event carries");
}

TEST_F(AlarmOrSelect, TheModeOfTheConnectCounts) {
    configureMode("auto");
    connect(true);
    configureMode("manual"); // in force at the next connect
    EXPECT_TRUE(alarmOrSelect(0, "Gate", "").selected);
    EXPECT_EQ(next().id, EID_SELECT);
    EXPECT_EQ(libcommon::osdText(2), "ALARM: Gate");
}

TEST_F(AlarmOrSelect, NeverLeavesAnAlarmInTheQueueInAutomaticMode) {
    configureMode("auto");
    for (const bool connected : {true, false}) {
        connect(connected);
        try {
            alarmOrSelect(0, "Gate", "Person");
        } catch (const Refused&) {
            EXPECT_FALSE(connected);
        }
    }
    EXPECT_EQ(next().id, EID_SELECT);
    EXPECT_EQ(next().id, EID_FLUSHCACHE);
}

TEST_F(AlarmOrSelect, WakesADisconnectedDecoderInManualModeOnly) {
    connect(false);
    configureMode("manual");
    EXPECT_FALSE(alarmOrSelect(0, "Gate", "").selected);
    EXPECT_EQ(next().id, EID_ALARM);
    configureMode("auto");
    EXPECT_THROW(alarmOrSelect(0, "Gate", ""), Refused);
}

TEST_F(AlarmOrSelect, DoesNothingWhenAlarmsAreOff) {
    configureMode("auto", "no");
    connect(true);
    EXPECT_THROW(alarmOrSelect(0, "Gate", "Person"), Refused);
    EXPECT_EQ(next().id, EID_FLUSHCACHE);
    EXPECT_EQ(libcommon::osdText(2), "");
}

TEST_F(AlarmOrSelect, IsRefusedWithoutADecoder) {
    configureMode("manual");
    removeEventQueue();
    try {
        alarmOrSelect(0, "Gate", "");
        FAIL();
    } catch (const Refused& reason) {
        EXPECT_THAT(reason.what(), HasSubstr("no decoder is running"));
    }
}

} // namespace
