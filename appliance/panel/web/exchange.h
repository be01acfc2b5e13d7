// One request and its answer, between libsoup and a handler.
#pragma once

#include "appliance/panel/web/connection.h"
#include "appliance/panel/web/request.h"

#include <libsoup/soup.h>
#include <memory>
#include <string>

namespace panel {

// The answer of a message that libsoup waits for. Exactly one is sent.
class Exchange : public std::enable_shared_from_this<Exchange> {
public:
    Exchange(SoupServerMessage* message, std::shared_ptr<Connection> connection);
    ~Exchange(); // answers with 500 if there was no answer
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    // The handler is called between hold() and release(), so that an answer may come later.
    void hold();
    void answer(const Response& response);
    // The client has gone.
    void drop() { message_.reset(); }

    SoupServerMessage* message() const { return message_.get(); }
    const std::shared_ptr<Connection>& connection() const { return connection_; }

private:
    GObjectPointer<SoupServerMessage> message_; // null: answered, or the client has gone
    std::shared_ptr<Connection> connection_;
    bool held_ = false;
};

// The request of a message, without what the route and the visitor add. Nothing if its texts can't be decoded.
std::unique_ptr<Request> readRequest(SoupServerMessage* message);

} // namespace panel
