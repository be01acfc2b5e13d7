// One device's SOAP services, asked over HTTP.
//
// Every request has a time limit, an answer has a limit of size, nothing is redirected, no proxy is used. The password
// itself is never sent: the device gets a digest of it, in the message or in the HTTP header, whichever it asks for.
// One thread at a time.
#pragma once

#include "appliance/discovery/messages/soap.h"
#include "appliance/discovery/web_address.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

struct Credentials {
    std::string user; // empty: none
    std::string password;
};

enum class SoapOutcome {
    Answered,
    Fault,         // the device refused the request, for another reason than the password
    NotAuthorized, // it wants a user name and a password, or other ones
    NoConnection,  // no answer at all
    NotUnderstood, // something else than SOAP, or too much of it
};

struct SoapReply {
    SoapOutcome outcome = SoapOutcome::NoConnection;
    XmlElement content; // Answered: the body's content
    std::string reason; // otherwise: why, for people
};

using Moment = std::chrono::steady_clock::time_point;

class SoapClient {
public:
    // No request goes on after `end`.
    SoapClient(Credentials credentials, Moment end);
    ~SoapClient();
    SoapClient(const SoapClient&) = delete;
    SoapClient& operator=(const SoapClient&) = delete;

    // How far the device's clock is ahead of ours, in seconds: digests are made for its time.
    void setClockDifference(std::int64_t seconds) { clockDifference_ = seconds; }

    // Sends the content of a body, with the credentials unless `anonymous`.
    SoapReply ask(const WebAddress& service, const std::string& body, bool anonymous = false);

    // Once in a process, before it has threads that use the class.
    static void prepareProcess();

private:
    struct HttpAnswer;
    HttpAnswer post(const WebAddress& service, const std::string& message, bool withDigest);
    std::string message(const std::string& body, bool anonymous) const;

    const Credentials credentials_;
    const Moment end_;
    std::int64_t clockDifference_ = 0;
    bool httpDigest_ = false; // the device has asked for it
    void* curl_ = nullptr;
};
