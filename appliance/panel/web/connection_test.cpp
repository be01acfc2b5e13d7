#include "appliance/panel/web/connection.h"

#include "appliance/panel/web/stream_ends.h"

#include <gmock/gmock.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace panel {
namespace {

constexpr std::int64_t second = 1000000;
constexpr std::string_view request = "GET /a HTTP/1.1\r\nHost: localhost\r\n\r\n";

// What one read of libsoup gives: bytes, "WAIT" when there are none yet, "END" at the end.
std::string readOnce(Connection& connection) {
    std::array<char, 4096> bytes{};
    GError* failure = nullptr;
    const gssize count = connection.read(bytes.data(), bytes.size(), &failure);
    const GErrorPointer error(failure);
    if (count < 0)
        return g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK) ? "WAIT" : failure->message;
    return count == 0 ? "END" : std::string(bytes.data(), static_cast<std::size_t>(count));
}

std::string writeOnce(Connection& connection, std::string_view text) {
    GError* failure = nullptr;
    const gssize count = connection.write(text.data(), text.size(), &failure);
    const GErrorPointer error(failure);
    return count < 0 ? failure->message : std::string(text.substr(0, static_cast<std::size_t>(count)));
}

class PanelConnection : public testing::Test {
protected:
    PanelConnection() { limits_.drainBytes = 100'000; }

    void SetUp() override {
        ends_ = makeStreamEnds(limits_);
        ASSERT_NE(ends_.connection, nullptr);
    }
    Connection& connection() { return *ends_.connection; }
    ClientEnd& client() { return *ends_.client; }

    // As libsoup after a whole request and its answer.
    void oneRequest() {
        client().send(request);
        ASSERT_EQ(readOnce(connection()), request);
        ASSERT_EQ(writeOnce(connection(), "an answer"), "an answer");
        connection().answered();
    }
    static std::int64_t in(unsigned seconds) { return g_get_monotonic_time() + seconds * second; }

    ServerLimits limits_;
    StreamEnds ends_;
};

// ---- Requests ------------------------------------------------------------------------------------------------

TEST_F(PanelConnection, PassesRequestsAndAnswers) {
    EXPECT_EQ(readOnce(connection()), "WAIT");
    oneRequest();
    EXPECT_EQ(client().received(), "an answer");
    oneRequest();
    EXPECT_EQ(client().received(), "an answeran answer");
    EXPECT_TRUE(connection().isOpen());
}

TEST_F(PanelConnection, HoldsAHeaderBackUntilItIsWhole) {
    client().send(request.substr(0, 20));
    EXPECT_EQ(readOnce(connection()), "WAIT");
    client().send(request.substr(20));
    EXPECT_EQ(readOnce(connection()), request);
}

TEST_F(PanelConnection, HoldsTheNextRequestBackUntilTheAnswerIsWritten) {
    client().send(std::string(request) + std::string(request));
    EXPECT_EQ(readOnce(connection()), request);
    EXPECT_EQ(readOnce(connection()), "WAIT");
    EXPECT_EQ(readOnce(connection()), "WAIT");
    connection().answered();
    EXPECT_TRUE(connection().isReadable());
    EXPECT_EQ(readOnce(connection()), request);
}

TEST_F(PanelConnection, IsReadableWhenThereIsSomethingToRead) {
    EXPECT_FALSE(connection().isReadable());
    client().send("G");
    EXPECT_TRUE(connection().isReadable());
    EXPECT_EQ(readOnce(connection()), "WAIT");
    EXPECT_FALSE(connection().isReadable());
    connection().cut();
    EXPECT_TRUE(connection().isReadable()) << "the end is something to read, too";
}

TEST_F(PanelConnection, ReadSourceFiresForBytesAndForTheEnd) {
    const auto fires = [this] {
        bool fired = false;
        GSource* source = connection().readSource();
        // The callbacks of a timeout's and a stream's source differ; a dummy source in front of both takes one kind.
        GSource* wrapper =
            g_pollable_source_new_full(g_io_stream_get_input_stream(connection().stream()), source, nullptr);
        g_source_unref(source);
        const GPollableSourceFunc call = [](GObject*, gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        };
        g_source_set_callback(wrapper, G_SOURCE_FUNC(call), &fired, nullptr);
        g_source_attach(wrapper, nullptr);
        const SourceHandle handle(wrapper);
        return runUntil([&fired] { return fired; });
    };
    client().send(request);
    EXPECT_TRUE(fires()) << "bytes in the socket";
    std::array<char, 5> part{};
    ASSERT_EQ(connection().read(part.data(), part.size(), nullptr), 5);
    EXPECT_TRUE(fires()) << "bytes in the gate";
    connection().cut();
    EXPECT_TRUE(fires()) << "the end";
}

// ---- Ends of the client --------------------------------------------------------------------------------------

TEST_F(PanelConnection, EndBeforeARequestIsAnEnd) {
    client().close();
    EXPECT_EQ(readOnce(connection()), "END");
    EXPECT_FALSE(connection().isFarewell());
}

TEST_F(PanelConnection, EndInsideALaterHeaderIsAnEndBetweenTwoRequests) {
    oneRequest();
    client().send("GET /half");
    client().close();
    EXPECT_THAT(readOnce(connection()), StartsWith("GET / HTTP/1.0"))
        << "libsoup saw nothing of the half one";
    connection().answered();
    EXPECT_EQ(readOnce(connection()), "END");
}

TEST_F(PanelConnection, EndInsideABodyIsAnEnd) {
    client().send("POST /a HTTP/1.1\r\nHost: localhost\r\nContent-Length: 10\r\n\r\nabc");
    EXPECT_THAT(readOnce(connection()), EndsWith("\r\n\r\nabc"));
    client().close();
    EXPECT_EQ(readOnce(connection()), "END");
    EXPECT_FALSE(connection().isFarewell());
}

TEST_F(PanelConnection, EndBetweenTwoRequestsLooksLikeARequestWithoutAnAnswer) {
    oneRequest();
    client().received();
    client().close();
    EXPECT_THAT(readOnce(connection()), StartsWith("GET / HTTP/1.0"));
    EXPECT_TRUE(connection().isFarewell());
    EXPECT_EQ(writeOnce(connection(), "goes nowhere"), "goes nowhere");
    connection().answered();
    EXPECT_EQ(readOnce(connection()), "END");
    connection().closedByLibrary();
    EXPECT_FALSE(connection().isOpen());
}

TEST_F(PanelConnection, ResetBetweenTwoRequestsIsAnEnd) {
    oneRequest();
    client().close(); // with an answer that it has not read
    EXPECT_THAT(readOnce(connection()), StartsWith("GET / HTTP/1.0"));
    connection().answered();
    EXPECT_EQ(readOnce(connection()), "END");
}

TEST_F(PanelConnection, NoFarewellThatDoesNotFitIntoARead) {
    oneRequest();
    client().close();
    std::array<char, 8> few{};
    EXPECT_EQ(connection().read(few.data(), few.size(), nullptr), 0);
    EXPECT_FALSE(connection().isFarewell());
}

TEST_F(PanelConnection, WritingToAClosedClientFails) {
    client().close();
    EXPECT_THAT(writeOnce(connection(), "an answer"), HasSubstr("pipe"));
}

// ---- Refusals and the end of a connection --------------------------------------------------------------------

TEST_F(PanelConnection, RefusedHeaderGetsItsReason) {
    client().send("GET /a HTTP/1.1\nHost: localhost\n\n");
    EXPECT_EQ(readOnce(connection()), "END");
    EXPECT_TRUE(client().ended());
    EXPECT_THAT(client().received(), StartsWith("HTTP/1.1 400 Refused\r\n"));
    EXPECT_THAT(client().received(), HasSubstr("\r\nConnection: close\r\n"));
    EXPECT_THAT(client().received(), EndsWith(R"({"error":"The header has a line that is not allowed"})"));
}

TEST_F(PanelConnection, DropsWhatARefusedClientStillSends) {
    client().send("POST /a HTTP/1.1\r\nHost: localhost\r\nContent-Length: 999999\r\n\r\n");
    EXPECT_EQ(readOnce(connection()), "END");
    connection().closedByLibrary();
    EXPECT_THAT(client().received(), StartsWith("HTTP/1.1 413 "));
    for (int part = 0; part < 9; ++part) {
        EXPECT_TRUE(client().send(std::string(10'000, 'a'))) << part;
        g_main_context_iteration(nullptr, FALSE);
    }
    EXPECT_TRUE(connection().isOpen());
    client().close();
    EXPECT_TRUE(runUntil([this] { return !connection().isOpen(); }));
}

TEST_F(PanelConnection, DropsABoundedNumberOfBytes) {
    client().send("GET /a HTTP/1.1\nHost: localhost\n\n");
    EXPECT_EQ(readOnce(connection()), "END");
    EXPECT_TRUE(runUntil([this] {
        client().send(std::string(10'000, 'a'));
        return !connection().isOpen();
    }));
    connection().closedByLibrary();
    EXPECT_FALSE(client().send("a"));
}

TEST_F(PanelConnection, DropsForABoundedTime) {
    client().send("GET /a HTTP/1.1\nHost: localhost\n\n");
    EXPECT_EQ(readOnce(connection()), "END");
    connection().closedByLibrary();
    connection().checkTime(in(limits_.drainSeconds - 1));
    EXPECT_TRUE(connection().isOpen());
    connection().checkTime(in(limits_.drainSeconds));
    EXPECT_FALSE(connection().isOpen());
    EXPECT_FALSE(client().send("a"));
}

TEST_F(PanelConnection, LastAnswerIsNotLostWhenTheClientStillSends) {
    client().send(request);
    EXPECT_EQ(readOnce(connection()), request);
    EXPECT_EQ(writeOnce(connection(), "the last answer"), "the last answer");
    connection().closedByLibrary();
    connection().answered(); // libsoup says so after it has closed
    EXPECT_TRUE(client().send(request));
    EXPECT_TRUE(client().ended());
    EXPECT_EQ(client().received(), "the last answer");
    connection().checkTime(in(limits_.drainSeconds));
    EXPECT_FALSE(connection().isOpen()) << "the time of draining counts, not the one between two requests";
}

TEST_F(PanelConnection, LivesUntilItIsDrainedWithoutAnyOwner) {
    client().send(request);
    EXPECT_EQ(readOnce(connection()), request);
    connection().closedByLibrary();
    const std::weak_ptr<Connection> weak = std::exchange(ends_.connection, nullptr);
    EXPECT_FALSE(weak.expired());
    client().close();
    EXPECT_TRUE(runUntil([&weak] { return weak.expired(); }));
}

TEST_F(PanelConnection, CutEndsBothDirections) {
    connection().cut();
    EXPECT_FALSE(connection().isOpen());
    EXPECT_TRUE(client().ended());
    EXPECT_EQ(readOnce(connection()), "END");
    connection().cut();
    connection().closedByLibrary();
    EXPECT_FALSE(client().send("a"));
}

TEST_F(PanelConnection, EventStreamIsNotLibsoupsAnyMore) {
    client().send(request);
    EXPECT_EQ(readOnce(connection()), request);
    connection().becomeEventStream();
    connection().closedByLibrary();
    connection().checkTime(in(100'000));
    EXPECT_TRUE(connection().isOpen());
}

// ---- Times ---------------------------------------------------------------------------------------------------

TEST_F(PanelConnection, SilentClientIsCutWithoutAnAnswer) {
    connection().checkTime(in(limits_.headSeconds - 1));
    EXPECT_TRUE(connection().isOpen());
    connection().checkTime(in(limits_.headSeconds));
    EXPECT_FALSE(connection().isOpen());
    EXPECT_EQ(client().received(), "");
}

TEST_F(PanelConnection, SlowHeaderGets408) {
    client().send("GET /slow");
    EXPECT_EQ(readOnce(connection()), "WAIT");
    connection().checkTime(in(limits_.headSeconds));
    EXPECT_THAT(client().received(), StartsWith("HTTP/1.1 408 "));
    EXPECT_EQ(readOnce(connection()), "END");
    connection().checkTime(in(limits_.drainSeconds));
    EXPECT_FALSE(connection().isOpen());
}

TEST_F(PanelConnection, FirstHeaderHasItsTimeFromTheBeginning) {
    ends_ = makeStreamEnds(limits_, "192.0.2.1", g_get_monotonic_time() - limits_.headSeconds * second);
    client().send("GET /slow");
    EXPECT_EQ(readOnce(connection()), "WAIT");
    connection().checkTime(g_get_monotonic_time());
    EXPECT_THAT(client().received(), StartsWith("HTTP/1.1 408 "));
}

TEST_F(PanelConnection, SlowLaterHeaderGets408) {
    oneRequest();
    client().send("GET /slow");
    EXPECT_EQ(readOnce(connection()), "WAIT");
    connection().checkTime(in(limits_.headSeconds));
    EXPECT_THAT(client().received(), HasSubstr("HTTP/1.1 408 "));
}

TEST_F(PanelConnection, SlowBodyGets408) {
    client().send("POST /a HTTP/1.1\r\nHost: localhost\r\nContent-Length: 10\r\n\r\nabc");
    EXPECT_THAT(readOnce(connection()), EndsWith("\r\n\r\nabc"));
    connection().checkTime(in(limits_.bodySeconds - 1));
    EXPECT_TRUE(client().received().empty());
    connection().checkTime(in(limits_.bodySeconds));
    EXPECT_THAT(client().received(), StartsWith("HTTP/1.1 408 "));
}

TEST_F(PanelConnection, IdleClientIsCutWithoutAnAnswer) {
    oneRequest();
    connection().checkTime(in(limits_.idleSeconds - 1));
    EXPECT_TRUE(connection().isOpen());
    connection().checkTime(in(limits_.idleSeconds));
    EXPECT_FALSE(connection().isOpen());
    EXPECT_EQ(client().received(), "an answer");
}

TEST_F(PanelConnection, ClientThatTakesNoAnswerIsCut) {
    client().send(request);
    EXPECT_EQ(readOnce(connection()), request);
    connection().checkTime(in(limits_.answerSeconds - 1));
    EXPECT_TRUE(connection().isOpen());
    connection().checkTime(in(limits_.answerSeconds));
    EXPECT_FALSE(connection().isOpen());
    EXPECT_TRUE(client().ended());
}

// ---- The streams of libsoup ----------------------------------------------------------------------------------

TEST_F(PanelConnection, StreamsReadWriteAndOwnTheConnection) {
    GObjectPointer<GIOStream> stream = libraryStream(ends_.connection);
    const std::weak_ptr<Connection> weak = std::exchange(ends_.connection, nullptr);
    auto* in = G_POLLABLE_INPUT_STREAM(g_io_stream_get_input_stream(stream.get()));
    auto* out = G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(stream.get()));
    EXPECT_FALSE(g_pollable_input_stream_is_readable(in));
    EXPECT_TRUE(g_pollable_output_stream_is_writable(out));
    client().send(request);
    EXPECT_TRUE(g_pollable_input_stream_is_readable(in));
    std::array<char, 100> bytes{};
    EXPECT_EQ(g_pollable_input_stream_read_nonblocking(in, bytes.data(), bytes.size(), nullptr, nullptr),
              static_cast<gssize>(request.size()));
    EXPECT_EQ(g_pollable_output_stream_write_nonblocking(out, "abc", 3, nullptr, nullptr), 3);
    EXPECT_EQ(client().received(), "abc");
    client().close();
    weak.lock()->answered();
    EXPECT_GT(g_input_stream_read(G_INPUT_STREAM(in), bytes.data(), bytes.size(), nullptr, nullptr), 0);
    EXPECT_TRUE(weak.lock()->isFarewell());
    EXPECT_TRUE(g_io_stream_close(stream.get(), nullptr, nullptr));
    EXPECT_FALSE(weak.lock()->isOpen());
    stream.reset();
    EXPECT_TRUE(weak.expired());
}

} // namespace
} // namespace panel
