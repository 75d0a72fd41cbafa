#include "FFmpegCodecs.h"

#include <atomic>

#include <HostMediaStats.h>

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>

namespace android {
namespace ffmpeg {

namespace {

struct MimeEntry {
    AVCodecID id;
    const char *mime;
};

// Audio codecs the platform names.  Several FFmpeg codecs can share a mime;
// the first entry of a mime is the default decoder for it.
const MimeEntry kAudioMimes[] = {
    {AV_CODEC_ID_MP3, "audio/mpeg"},
    {AV_CODEC_ID_MP2, "audio/mpeg-L2"},
    {AV_CODEC_ID_MP1, "audio/mpeg-L1"},
    {AV_CODEC_ID_AAC, "audio/mp4a-latm"},
    {AV_CODEC_ID_AAC_LATM, "audio/mp4a-latm"},
    {AV_CODEC_ID_FLAC, "audio/flac"},
    {AV_CODEC_ID_VORBIS, "audio/vorbis"},
    {AV_CODEC_ID_OPUS, "audio/opus"},
    {AV_CODEC_ID_ALAC, "audio/alac"},
    {AV_CODEC_ID_APE, "audio/x-ape"},
    {AV_CODEC_ID_WMAV2, "audio/x-ms-wma"},
    {AV_CODEC_ID_WMAV1, "audio/x-ms-wma"},
    {AV_CODEC_ID_WMAPRO, "audio/x-ms-wma-pro"},
    {AV_CODEC_ID_WMALOSSLESS, "audio/x-ms-wma-lossless"},
    {AV_CODEC_ID_DSD_LSBF_PLANAR, "audio/dsd"},
    {AV_CODEC_ID_DSD_MSBF_PLANAR, "audio/dsd"},
    {AV_CODEC_ID_DSD_LSBF, "audio/dsd"},
    {AV_CODEC_ID_DSD_MSBF, "audio/dsd"},
    {AV_CODEC_ID_AC3, "audio/ac3"},
    {AV_CODEC_ID_EAC3, "audio/eac3"},
    {AV_CODEC_ID_DTS, "audio/vnd.dts"},
    {AV_CODEC_ID_AMR_NB, "audio/3gpp"},
    {AV_CODEC_ID_AMR_WB, "audio/amr-wb"},
    {AV_CODEC_ID_PCM_ALAW, "audio/g711-alaw"},
    {AV_CODEC_ID_PCM_MULAW, "audio/g711-mlaw"},
    {AV_CODEC_ID_GSM_MS, "audio/gsm"},
    {AV_CODEC_ID_QCELP, "audio/qcelp"},
};

// PCM layouts the extractor hands out as "audio/raw" (converted to
// little-endian integers where needed).
const AVCodecID kRawPcm[] = {
    AV_CODEC_ID_PCM_U8, AV_CODEC_ID_PCM_S8,
    AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE,
    AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_PCM_S24BE,
    AV_CODEC_ID_PCM_S32LE, AV_CODEC_ID_PCM_S32BE,
    AV_CODEC_ID_PCM_F32LE, AV_CODEC_ID_PCM_F32BE,
    AV_CODEC_ID_PCM_F64LE, AV_CODEC_ID_PCM_F64BE,
};

const MimeEntry kVideoMimes[] = {
    {AV_CODEC_ID_H264, "video/avc"},
    {AV_CODEC_ID_HEVC, "video/hevc"},
    {AV_CODEC_ID_MPEG4, "video/mp4v-es"},
    {AV_CODEC_ID_H263, "video/3gpp"},
    {AV_CODEC_ID_MPEG2VIDEO, "video/mpeg2"},
    {AV_CODEC_ID_VP8, "video/x-vnd.on2.vp8"},
    {AV_CODEC_ID_VP9, "video/x-vnd.on2.vp9"},
    {AV_CODEC_ID_AV1, "video/av01"},
    {AV_CODEC_ID_MJPEG, "video/mjpeg"},
};

const char kFFmpegPrefix[] = "x-ffmpeg-";

}  // namespace

std::string mimeForCodec(AVMediaType type, AVCodecID id) {
    if (type == AVMEDIA_TYPE_AUDIO) {
        for (AVCodecID raw : kRawPcm) {
            if (raw == id) return MEDIA_MIMETYPE_AUDIO_RAW;
        }
        for (const MimeEntry &e : kAudioMimes) {
            if (e.id == id) return e.mime;
        }
        return std::string("audio/") + kFFmpegPrefix + avcodec_get_name(id);
    }
    if (type == AVMEDIA_TYPE_VIDEO) {
        for (const MimeEntry &e : kVideoMimes) {
            if (e.id == id) return e.mime;
        }
        return std::string("video/") + kFFmpegPrefix + avcodec_get_name(id);
    }
    if (type == AVMEDIA_TYPE_SUBTITLE) {
        return std::string("text/") + kFFmpegPrefix + avcodec_get_name(id);
    }
    return std::string("application/") + kFFmpegPrefix + avcodec_get_name(id);
}

std::string mimeForContainer(const char *formatName) {
    struct { const char *prefix; const char *mime; } kTable[] = {
        {"mov", "audio/mp4"}, {"mp3", "audio/mpeg"}, {"flac", "audio/flac"},
        {"ogg", "audio/ogg"}, {"wav", "audio/x-wav"}, {"aiff", "audio/x-aiff"},
        {"matroska", "video/x-matroska"}, {"asf", "video/x-ms-asf"},
        {"dsf", "audio/x-dsf"}, {"ape", "audio/x-ape"},
    };
    for (const auto &e : kTable) {
        if (!strncmp(formatName, e.prefix, strlen(e.prefix))) return e.mime;
    }
    return std::string("application/") + kFFmpegPrefix + formatName;
}

bool isDsd(AVCodecID id) {
    return id == AV_CODEC_ID_DSD_LSBF || id == AV_CODEC_ID_DSD_MSBF
            || id == AV_CODEC_ID_DSD_LSBF_PLANAR || id == AV_CODEC_ID_DSD_MSBF_PLANAR;
}

std::vector<AVCodecID> codecsForMime(const char *mime) {
    std::vector<AVCodecID> ids;
    if (mime == nullptr) {
        return ids;
    }
    for (const MimeEntry &e : kAudioMimes) {
        if (!strcasecmp(e.mime, mime)) ids.push_back(e.id);
    }
    if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW)) {
        for (AVCodecID raw : kRawPcm) ids.push_back(raw);
    }
    const std::string prefix = std::string("audio/") + kFFmpegPrefix;
    if (ids.empty() && !strncasecmp(mime, prefix.c_str(), prefix.size())) {
        const AVCodec *codec = avcodec_find_decoder_by_name(mime + prefix.size());
        if (codec == nullptr) {
            const AVCodecDescriptor *desc = avcodec_descriptor_get_by_name(mime + prefix.size());
            if (desc != nullptr) ids.push_back(desc->id);
        } else {
            ids.push_back(codec->id);
        }
    }
    return ids;
}

std::vector<AVCodecID> codecsForComponent(const char *name) {
    if (name == nullptr) {
        return {};
    }
    if (!strcmp(name, "OMX.qcom.audio.decoder.ape")) {
        return {AV_CODEC_ID_APE};
    }
    if (!strcmp(name, "OMX.qcom.audio.decoder.alac")) {
        return {AV_CODEC_ID_ALAC};
    }
    if (!strcmp(name, "OMX.qti.audio.decoder.dsd")) {
        return {AV_CODEC_ID_DSD_LSBF_PLANAR, AV_CODEC_ID_DSD_MSBF_PLANAR,
                AV_CODEC_ID_DSD_LSBF, AV_CODEC_ID_DSD_MSBF};
    }
    return {};
}

namespace {
std::atomic<int64_t> gDecodedFrames(0);
}  // namespace

void countDecodedFrames(int64_t frames) {
    gDecodedFrames.fetch_add(frames, std::memory_order_relaxed);
}

}  // namespace ffmpeg

int64_t hostMediaDecodedFrames() {
    return ffmpeg::gDecodedFrames.load(std::memory_order_relaxed);
}

}  // namespace android
