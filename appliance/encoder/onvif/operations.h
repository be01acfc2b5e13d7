// The ONVIF operations that the encoder knows.
#pragma once

#include "appliance/discovery/messages/xml.h"
#include "appliance/encoder/onvif/onvif_facts.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Whether clients may use the operation without user name and password.
bool isOpenOperation(std::string_view name);

struct OnvifContext {
    const OnvifFacts& facts;
    OnvifPlace place;
    std::int64_t now = 0; // the encoder's clock, seconds since 1970
};

// The content of the answer's body; `request` is that of the request's body. Nothing if the encoder does not know the
// operation; "" if the request names a profile that does not exist.
std::optional<std::string> answerOperation(const XmlElement& request, const OnvifContext& context);

// A fault as the content of a body. `code` is without prefix, such as "NotAuthorized".
std::string onvifFault(std::string_view code, std::string_view reason);
