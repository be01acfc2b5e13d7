#include "appliance/encoder/http/guide_page.h"

#include "appliance/encoder/http/wanted_channel.h"
#include "appliance/encoder/multicast/guide_description.h"

void serveGuide(HttpSession& session) {
    const Channel* const channel = wantedChannel(session);
    if (channel == nullptr || !channel->guidePlace) {
        replyNoSuchCamera(session);
        return;
    }
    const Options& options = session.device().options;
    const std::optional<MulticastPlace>& audio = channel->guideAudioPlace;
    session.reply(
        {200,
         "application/sdp",
         describeMulticast(options.name, options.address, *channel->guidePlace, audio ? &*audio : nullptr),
         {}});
}
