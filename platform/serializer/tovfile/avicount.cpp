#include "avicount.h"

#include "console.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

std::int64_t CountAviFrames(std::string const &name)
{
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext *context = nullptr;
    // The format is named, so that no other one's reader sees a file of somebody else's making.
    if (avformat_open_input(&context, ("file:" + name).c_str(), av_find_input_format("avi"), nullptr) < 0)
        return -1;
    std::int64_t frames = context->nb_streams == 1 ? 0 : -1;
    AVPacket *packet = av_packet_alloc();
    while (frames >= 0 && packet && !IsInterrupted() && av_read_frame(context, packet) >= 0) {
        ++frames;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    return frames;
}
