#include "bench/recording.h"

#include "bench/screen/streams.h"
#include "tests/appliance/process.h"

#include <cstdio>

namespace bench {

std::string recordedStream(int bitrate, const std::string& folder) {
    const std::string file = folder + "/camera.h264";
    const std::string rate = std::to_string(bitrate) + "k";
    std::vector<std::string> command =
        wordsOf("/usr/bin/ffmpeg -loglevel error -nostdin -y -f lavfi -i "
                "testsrc2=size=640x480:rate=25:duration=4,noise=alls=40:allf=t -pix_fmt yuv420p -c:v libx264 "
                "-preset ultrafast -bf 0 -g 25 -slices 1 -b:v " +
                rate + " -minrate " + rate + " -maxrate " + rate + " -bufsize " + rate);
    command.push_back(file);
    const appliance::Finished made = appliance::runToEnd(command, {}, appliance::Seconds(120));
    if (made.status != 0)
        std::fprintf(stderr, "%s", made.errors.c_str());
    return appliance::readFile(file);
}

} // namespace bench
