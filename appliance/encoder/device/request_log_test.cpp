#include "appliance/encoder/device/request_log.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

TEST(RequestLog, GivesEveryRequestAsOneLineOfJson) {
    RequestLog log;
    EXPECT_EQ(log.json(), "[\n]\n");
    log.add({"http", "GET", "/a?b=\"c\"", "joe", 200, 17, 1});
    log.add({"rtsp", "PLAY", "/m", "", 401, 18, 2});
    EXPECT_EQ(log.json(),
              "[\n"
              "{\"time\": 17, \"protocol\": \"http\", \"connection\": 1, \"method\": \"GET\", \"target\": "
              "\"/a?b=\\\"c\\\"\", \"user\": \"joe\", \"status\": 200},\n"
              "{\"time\": 18, \"protocol\": \"rtsp\", \"connection\": 2, \"method\": \"PLAY\", \"target\": "
              "\"/m\", \"user\": \"\", \"status\": 401}\n]\n");
    log.clear();
    EXPECT_EQ(log.json(), "[\n]\n");
}

TEST(RequestLog, KeepsTheNewestTenThousand) {
    RequestLog log;
    for (int i = 0; i < 10001; ++i)
        log.add({"http", "GET", std::to_string(i), "", 200, i, 1});
    const std::string json = log.json();
    EXPECT_EQ(std::count(json.begin(), json.end(), '{'), 10000);
    EXPECT_THAT(json, testing::Not(testing::HasSubstr("\"target\": \"0\"")));
    EXPECT_THAT(json, testing::HasSubstr("\"target\": \"10000\""));
}
