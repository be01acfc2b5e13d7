// Motion JPEG over HTTP: an endless sequence of JPEG pictures, the parts of a multipart/x-mixed-replace body.
//
// The query: camera=N, camera=quad or quad=1 (default: camera 1); resolution=WIDTHxHEIGHT or a name such as 4CIF;
// compression=0..100 (0 is the best picture); fps=N. An empty value means the default, because decoders send one for a
// setting that is not configured.
#pragma once

#include "appliance/encoder/http/http_session.h"

void streamMjpeg(HttpSession& session);

// One JPEG picture. The query is the same.
void sendStill(HttpSession& session);
