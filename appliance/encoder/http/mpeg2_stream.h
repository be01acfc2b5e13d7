// MPEG-2 over HTTP: a video elementary stream as an endless reply (video/mpeg). The query has camera=N, camera=quad
// or quad=1.
#pragma once

#include "appliance/encoder/http/http_session.h"

void streamMpeg2(HttpSession& session);
