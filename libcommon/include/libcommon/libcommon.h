// Everything the library offers.
#pragma once

#include <libcommon/barriers.h>
#include <libcommon/clock.h>
#include <libcommon/connected.h>
#include <libcommon/display.h>
#include <libcommon/events.h>
#include <libcommon/interrupt.h>
#include <libcommon/istring.h>
#include <libcommon/log.h>
#include <libcommon/network.h>
#include <libcommon/parameter_lines.h>
#include <libcommon/params.h>
#include <libcommon/paths.h>
#include <libcommon/semaphores.h>
#include <libcommon/settings_copy.h>
#include <libcommon/status.h>
#include <libcommon/sweep.h>
#include <libcommon/text.h>
