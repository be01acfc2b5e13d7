// The answer to a probe, as text.
#pragma once

#include "appliance/encoder/onvif/onvif_facts.h"

#include <optional>
#include <string>
#include <string_view>

// The message id of a probe that searches for a device such as this one. Nothing for every other text.
std::optional<std::string> probeForUs(std::string_view datagram, const OnvifFacts& facts);

// `deviceUrl` is the address of the device service.
std::string probeAnswer(const std::string& messageId, const OnvifFacts& facts, const std::string& deviceUrl);

// The scopes: URIs that clients may search for.
std::vector<std::string> scopesOf(const OnvifFacts& facts);
