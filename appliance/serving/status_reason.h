// The reason phrases of HTTP and RTSP statuses.
#pragma once

// "Not Found" for 404; "Unknown" for a status that our servers never send.
const char* reasonOf(int status);
