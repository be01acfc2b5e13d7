// Motion JPEG over HTTP: JPEG pictures one after the other, as parts of a multipart/x-mixed-replace body.
//
// The query: camera=N or camera=quad or quad=1 (default: camera 1), resolution=WIDTHxHEIGHT,
// compression=0..100 (0 is the best picture), fps=N.
#pragma once

#include "appliance/encoder/http_session.h"

void streamMjpeg(HttpSession& session);

// One JPEG picture.
void sendStill(HttpSession& session);
