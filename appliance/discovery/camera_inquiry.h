// Asks one camera what it is and which streams it has.
#pragma once

#include "appliance/discovery/camera.h"
#include "appliance/discovery/soap_client.h"
#include "appliance/discovery/web_address.h"

// `service` is the camera's device service; `network` the network in which it answered. All other addresses that the
// camera names have to be its own or in that network. Fills in everything of `camera` that it does not know yet. Ends
// at `end` at the latest. Any thread.
void inquire(Camera& camera, const WebAddress& service, const LocalNetwork& network,
             const Credentials& credentials, Moment end);
