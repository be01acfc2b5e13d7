// What this encoder reports about itself in its parameters.
#pragma once

#include "appliance/encoder/device/encoder_options.h"
#include "appliance/serving/parameter_table.h"

DeviceFacts factsOf(const Options& options);
