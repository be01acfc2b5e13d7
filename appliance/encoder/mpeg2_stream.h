// MPEG-2 over HTTP: a video elementary stream in an endless reply (video/mpeg). The query: camera=N,
// camera=quad or quad=1, as for Motion JPEG.
#pragma once

#include "appliance/encoder/http_session.h"

void streamMpeg2(HttpSession& session);
