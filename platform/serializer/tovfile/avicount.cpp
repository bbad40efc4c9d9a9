#include "avicount.h"

#include "console.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

MovieCount CountAviFrames(std::string const &name)
{
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext *context = nullptr;
    // The format is named, so that no other one's reader sees a file of somebody else's making.
    if (avformat_open_input(&context, ("file:" + name).c_str(), av_find_input_format("avi"), nullptr) < 0)
        return {};
    MovieCount count;
    std::int64_t const told = context->nb_streams == 1 ? context->streams[0]->nb_frames : -1;
    AVPacket *packet = av_packet_alloc();
    if (packet && told >= 0)
        count.frames = 0;
    while (count.frames >= 0 && !IsInterrupted() && av_read_frame(context, packet) >= 0) {
        if (!(packet->flags & AV_PKT_FLAG_CORRUPT)) // the last one may have been cut off
            ++count.frames;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    count.isEnded = count.frames == told;
    return count;
}
