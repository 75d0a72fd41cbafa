#include "DecodeFloor.h"

#include <time.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace rotavox {

namespace {

double threadCpuS() {
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

}  // namespace

DecodeFloor::Result DecodeFloor::measure(const std::string& path) {
    Result result;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    int stream = -1;
    int sampleRate = 0;
    const AVCodec* decoder = nullptr;

    const double startS = threadCpuS();
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0 ||
        avformat_find_stream_info(format, nullptr) < 0) {
        result.error = "cannot open " + path;
        goto done;
    }
    stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (stream < 0 || decoder == nullptr) {
        result.error = "no audio track in " + path;
        goto done;
    }
    codec = avcodec_alloc_context3(decoder);
    avcodec_parameters_to_context(codec, format->streams[stream]->codecpar);
    codec->thread_count = 1;
    if (avcodec_open2(codec, decoder, nullptr) < 0) {
        result.error = "cannot open the decoder of " + path;
        goto done;
    }
    result.codec = decoder->name;
    sampleRate = codec->sample_rate;
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == stream && avcodec_send_packet(codec, packet) >= 0) {
            while (avcodec_receive_frame(codec, frame) >= 0) result.frames += frame->nb_samples;
        }
        av_packet_unref(packet);
    }
    avcodec_send_packet(codec, nullptr);
    while (avcodec_receive_frame(codec, frame) >= 0) result.frames += frame->nb_samples;
    result.cpuS = threadCpuS() - startS;
    result.mediaS = sampleRate > 0 ? (double)result.frames / sampleRate : 0;

done:
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    return result;
}

}  // namespace rotavox
