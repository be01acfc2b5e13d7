// Hiding secrets in the process's visible command line. For static programs: nothing here allocates.
#pragma once

namespace front {

// Overwrites the secrets in the arguments. Each front links one implementation.
void hideSecrets(int argc, char** argv);

// Whether the program proper ends with the process that started it.
extern const bool endsWithItsStarter;

// The exit status when the program proper can't be started.
extern const int cannotStart;

} // namespace front
