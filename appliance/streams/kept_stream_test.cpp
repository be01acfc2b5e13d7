#include "appliance/streams/kept_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace streams;

namespace {

constexpr int answerMs = 5000; // machines are noisy; only the tests of the limit itself use the real one

StreamAddress address() {
    RtspSource source;
    source.host = "127.0.0.1";
    source.path = "/mpeg4/1/media.orv";
    return addressOf(source);
}

KeptDescription h264() {
    KeptDescription description;
    DescribedStream video;
    video.caps = "application/x-rtp,media=video,encoding-name=H264,sprop=\"a=b\"";
    video.encodingName = "H264";
    video.payloadType = 96;
    video.rtpmap = "96 H264/90000";
    video.fmtp = "96 packetization-mode=1;sprop-parameter-sets=Z0IAHg==,aM4=";
    description.video = video;
    return description;
}

std::string frame(KeptFrame kind, const std::string& content) {
    return keptHeader(kind, content.size()) + content;
}

std::string described() {
    return frame(KeptFrame::description, writeKeptDescription(h264()));
}

// A keeper that answers one request with prepared bytes, in an appliance root of the test's own.
class KeptStreamTest : public testing::Test {
protected:
    KeptStreamTest() {
        char folder[] = "/tmp/kept-XXXXXX";
        root = mkdtemp(folder);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        std::filesystem::create_directories(root / "run/decoder");
    }
    ~KeptStreamTest() override {
        close(listener);
        close(connection);
        if (thread.joinable())
            thread.join();
        std::filesystem::remove_all(root);
    }

    void listenOnly() { listener = openKeptSocket(keptSocketPath(), true); }

    // Answers with `first`, later with `second`, and closes the connection if `closes`.
    void answer(const std::string& first, const std::string& second = "", bool closes = true) {
        listenOnly();
        ASSERT_GE(listener, 0);
        thread = std::thread([this, first, second, closes] {
            pollfd ready{listener, POLLIN, 0};
            poll(&ready, 1, answerMs);
            connection = accept(listener, nullptr, nullptr);
            ready = {connection, POLLIN, 0};
            poll(&ready, 1, answerMs);
            std::array<char, 4096> bytes{};
            const ssize_t count = recv(connection, bytes.data(), bytes.size(), 0);
            request.assign(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count)));
            send(connection, first.data(), first.size(), MSG_NOSIGNAL);
            if (!second.empty()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                send(connection, second.data(), second.size(), MSG_NOSIGNAL);
            }
            if (closes)
                shutdown(connection, SHUT_RDWR);
        });
    }

    // What a taker gets, in order: "v:packet", "live".
    KeptTaker taker() {
        return {.video =
                    [this](std::string_view packet) {
                        got.push_back("v:" + std::string(packet));
                        return packet != "refused";
                    },
                .sound = [this](std::string_view packet) { got.push_back("s:" + std::string(packet)); },
                .bytes =
                    [this](std::string_view bytes) {
                        got.push_back("b:" + std::string(bytes));
                        return true;
                    },
                .picture = [this](std::string_view jpeg) { got.push_back("j:" + std::string(jpeg)); },
                .live = [this] { got.emplace_back("live"); }};
    }

    std::filesystem::path root;
    int listener = -1;
    int connection = -1;
    std::thread thread;
    std::string request;
    std::vector<std::string> got;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(KeptStreamTest, WithoutAKeeperThereIsNoStream) {
    EXPECT_EQ(KeptStream::open(address()), nullptr);
}

TEST_F(KeptStreamTest, AFileOfADeadKeeperIsNoKeeper) {
    listenOnly();
    close(std::exchange(listener, -1));
    ASSERT_TRUE(std::filesystem::exists(keptSocketPath()));
    EXPECT_EQ(KeptStream::open(address()), nullptr);
}

TEST_F(KeptStreamTest, AKeeperThatDoesNotAnswerCostsOnlyTheLimit) {
    listenOnly(); // the connection is made, and nobody accepts it
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KeptStream::open(address()), nullptr);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(KeptStream::answerMs - 1));
    EXPECT_LT(took, std::chrono::seconds(2));
}

TEST_F(KeptStreamTest, AStreamThatIsNotKeptIsRefused) {
    answer(frame(KeptFrame::notKept, "not kept"));
    EXPECT_EQ(KeptStream::open(address(), answerMs), nullptr);
    thread.join();
    EXPECT_EQ(request, "take rtsp-unicast://[127.0.0.1]:554/mpeg4/1/media.orv\n");
}

TEST_F(KeptStreamTest, AnAnswerThatIsNotUnderstoodIsARefusal) {
    answer(frame(KeptFrame::description, "form=films\n"));
    EXPECT_EQ(KeptStream::open(address(), answerMs), nullptr);
}

TEST_F(KeptStreamTest, TheDescriptionComesWhole) {
    answer(described());
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->description().form, KeptDescription::Form::packets);
    EXPECT_FALSE(stream->description().ordered);
    EXPECT_EQ(stream->description().video->caps, h264().video->caps);
    EXPECT_EQ(stream->description().video->encodingName, "H264");
    EXPECT_EQ(stream->description().video->payloadType, 96);
    EXPECT_EQ(stream->description().video->rtpmap, "96 H264/90000");
    EXPECT_EQ(stream->description().video->fmtp, h264().video->fmtp);
    EXPECT_FALSE(stream->description().sound);
}

TEST_F(KeptStreamTest, PacketsComeInOrderAndLiveBetweenThem) {
    answer(described() + frame(KeptFrame::video, "1") + frame(KeptFrame::video, "2") +
               frame(KeptFrame::live, "") + frame(KeptFrame::video, "3"),
           frame(KeptFrame::sound, "4") + frame(KeptFrame::video, "5"));
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->run(taker()), "the keeper is gone");
    EXPECT_EQ(got, (Texts{"v:1", "v:2", "live", "v:3", "s:4", "v:5"}));
}

TEST_F(KeptStreamTest, AFrameInTwoPiecesIsOneFrame) {
    const std::string all = described() + frame(KeptFrame::video, std::string(3000, 'x'));
    answer(all.substr(0, described().size() + 5), all.substr(described().size() + 5));
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    stream->run(taker());
    EXPECT_EQ(got, (Texts{"v:" + std::string(3000, 'x')}));
}

TEST_F(KeptStreamTest, TheEndOfTheStreamHasItsReason) {
    answer(described() + frame(KeptFrame::ended, "the encoder ended the stream"), "", false);
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->run(taker()), "the encoder ended the stream");
}

TEST_F(KeptStreamTest, AStreamThatStandsStillIsLost) {
    answer(described() + frame(KeptFrame::live, ""), "", false);
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->run(taker()), "the keeper sends nothing");
}

TEST_F(KeptStreamTest, ATakerThatRefusesEndsIt) {
    answer(described() + frame(KeptFrame::video, "refused"), "", false);
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->run(taker()), "the decoder failed");
}

TEST_F(KeptStreamTest, AnotherThreadEndsIt) {
    answer(described(), "", false);
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    std::thread ender([&] { stream->end(); });
    stream->run(taker());
    ender.join();
}

TEST_F(KeptStreamTest, AFrameThatIsTooLongEndsIt) {
    std::string header = keptHeader(KeptFrame::video, largestKeptFrame + 1);
    answer(described(), header, false);
    const auto stream = KeptStream::open(address(), answerMs);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->run(taker()), "the keeper sends what is not understood");
}

TEST_F(KeptStreamTest, TheSocketFileIsForItsUserOnly) {
    listenOnly();
    struct stat file {};
    ASSERT_EQ(stat(keptSocketPath().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600U);
}

TEST_F(KeptStreamTest, APathThatIsTooLongForAnAddressWorks) {
    const std::filesystem::path folder = root / std::string(120, 'x');
    std::filesystem::create_directories(folder);
    const std::string path = folder / "warm.sock";
    listener = openKeptSocket(path, true);
    ASSERT_GE(listener, 0);
    const int client = openKeptSocket(path, false);
    EXPECT_GE(client, 0);
    close(client);
}

TEST(StreamAddress, TellsStreamsApart) {
    RtspSource rtsp;
    rtsp.host = "::1";
    rtsp.port = 8554;
    rtsp.path = "/mpeg4/2/media.orv";
    rtsp.transport = RtspTransport::http;
    rtsp.tls = true;
    EXPECT_EQ(addressOf(rtsp).text(), "rtsp-https://[::1]:8554/mpeg4/2/media.orv");
    rtsp.transport = RtspTransport::tcp; // TLS is for the tunnel only
    EXPECT_EQ(addressOf(rtsp).text(), "rtsp-tcp://[::1]:8554/mpeg4/2/media.orv");
    HttpSource http;
    http.host = "encoder";
    http.target = "/video.cgi?camera=1\n";
    EXPECT_EQ(addressOf(http, StreamAddress::Kind::mjpeg).text(),
              "mjpeg-http://[encoder]:80/video.cgi?camera=1 ");
    EXPECT_EQ(addressOf(http, StreamAddress::Kind::mpeg2).text(),
              "mpeg2-http://[encoder]:80/video.cgi?camera=1 ");
    EXPECT_EQ(addressOfGroup("239.1.2.3", 5004).text(), "group://[239.1.2.3]:5004");
}
