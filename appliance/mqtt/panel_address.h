// Where other machines find the panel of this decoder.
#pragma once

#include <string>

namespace mqtt {

// "https://hall.example:8088", from the section [Panel] of the configuration: the first name of Panel.Hosts, else
// Panel.Address, else this machine's name. "" while the panel listens on this machine only. It does not say whether the
// panel runs.
std::string panelAddress();

} // namespace mqtt
