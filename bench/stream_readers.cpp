#include "bench/stream_readers.h"

#include "bench/process_cost.h"
#include "tests/appliance/process.h"

#include <memory>
#include <stdexcept>

namespace bench {

void Arrivals::add(std::string_view packet) {
    constexpr std::size_t header = 12;
    if (packet.size() < header || (static_cast<unsigned char>(packet[1]) & 0x80) == 0)
        return;
    const std::lock_guard guard(lock_);
    times_.emplace(packet.substr(4, 4), std::chrono::steady_clock::now());
}

std::map<std::string, ArrivalTime> Arrivals::times() const {
    const std::lock_guard guard(lock_);
    return times_;
}

Distribution delaysBetween(const Arrivals& first, const Arrivals& later, ArrivalTime since) {
    Distribution delays;
    const auto straight = first.times();
    for (const auto& [picture, time] : later.times()) {
        const auto found = straight.find(picture);
        if (found != straight.end() && found->second > since)
            delays.add(std::chrono::duration<double, std::milli>(time - found->second).count());
    }
    return delays;
}

StreamReader::StreamReader(int port, const std::string& path, Arrivals* arrivals) {
    auto* stream = new streams::RtspStream(
        {.host = "127.0.0.1",
         .port = static_cast<std::uint16_t>(port),
         .path = path,
         .transport = streams::RtspTransport::tcp,
         .user = "",
         .password = ""},
        {.usesVideo = [](const std::string&) { return true; },
         .usesSound = [](const std::string&) { return false; },
         .beginVideo = [](const streams::DescribedStream&, bool) { return std::string(); },
         .beginSound = [](const streams::DescribedStream&) {},
         .noSound = [](const std::string&) {},
         .video =
             [this, arrivals](std::string_view packet) {
                 ++packets_;
                 if (arrivals != nullptr)
                     arrivals->add(packet);
                 return true;
             },
         .sound = [](std::string_view) {}});
    stream_ = stream; // never destroyed: its thread uses it
    thread_ = std::thread([stream] { stream->run(); });
}

StreamReader::~StreamReader() {
    stream_->end();
    thread_.join();
}

void settle(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

double costOfCopies(int streams, double seconds, const LoopingCamera& camera,
                    const std::vector<std::string>& to, const std::string& root) {
    std::vector<std::string> command{
        "/usr/bin/ffmpeg", "-loglevel", "error", "-nostdin", "-rtsp_transport", "tcp", "-i",
        camera.url(),      "-c",        "copy"};
    command.insert(command.end(), to.begin(), to.end());
    std::vector<std::unique_ptr<appliance::Process>> copies;
    for (int i = 0; i < streams; ++i)
        copies.push_back(std::make_unique<appliance::Process>(command, std::map<std::string, std::string>{},
                                                              root + "/var/log/ffmpeg.log"));
    settle(8); // ffmpeg looks at a stream for some seconds before it copies
    double cost = 0;
    for (const auto& copy : copies)
        cost -= processorMsOf({copy->pid()});
    settle(seconds);
    for (const auto& copy : copies) {
        if (!copy->running())
            throw std::runtime_error("ffmpeg has ended: " +
                                     appliance::readFile(root + "/var/log/ffmpeg.log"));
        cost += processorMsOf({copy->pid()});
    }
    return cost / 1000 / streams / seconds;
}

} // namespace bench
