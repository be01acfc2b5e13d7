// How a module exports its function.
#pragma once

#define EXPORTED extern "C" __attribute__((visibility("default")))
