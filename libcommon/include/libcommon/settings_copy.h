// Copies of the few settings that a confined process reads.
//
// A confined process must not open the parameter files: their folder also has passwords and keys. It reads these copies in
// /run/decoder/settings below the appliance root instead. They have the sections [Player], [Sound], [Sound.Info] and
// [Network.TLS] and nothing else. Each write through this library renews them once they exist. A change that was made with
// an editor is in them from the next start of a player, or the next write.
#pragma once

namespace libcommon {

// The folder of the copies.
inline constexpr const char* settingsFolder = "/run/decoder/settings";

// Makes or renews both copies; from then on this process reads its parameters from them, and can write none. False with a
// log line when they can't be made; nothing has changed then. Called once, before other threads exist.
bool readSettingsFromCopies();

} // namespace libcommon
