//#define LOG_NDEBUG 0
#define LOG_TAG "NuMediaExtractor"
#include <utils/Log.h>

#include <media/stagefright/NuMediaExtractor.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <deque>
#include <string>
#include <vector>

#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>

#include "FFmpegCodecs.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

namespace android {

namespace {

// How raw PCM samples are turned into what readSampleData delivers: little-
// endian interleaved integers, 8-bit unsigned, 24-bit packed.
enum RawConversion {
    kRawNone,      // not a raw track, or bytes already in the delivered layout
    kRawSwap16,
    kRawSwap24,
    kRawSwap32,
    kRawS8ToU8,
    kRawF32LEToS32,
    kRawF32BEToS32,
    kRawF64LEToS32,
    kRawF64BEToS32,
};

// Bytes of demuxed data read ahead at open to learn each stream's first time.
constexpr int kMaxProbePackets = 256;
// Codec input buffers are sized from "max-input-size"; never below this.
constexpr int32_t kMinMaxInputSize = 256 * 1024;
constexpr int kAvioBufferSize = 32768;
// How far before the end the search for trailing padding starts.
constexpr int64_t kPaddingScanUs = 3000000;

int32_t fullScaleToS32(double x) {
    const double scaled = x * 2147483648.0;
    if (scaled >= 2147483647.0) return INT32_MAX;
    if (scaled <= -2147483648.0) return INT32_MIN;
    return (int32_t)lrint(scaled);
}

}  // namespace

struct NuMediaExtractor::Demuxer {
    struct Track {
        int mStreamIndex = -1;
        sp<AMessage> mFormat;
        AVRational mTimeBase = {1, 1000000};
        int64_t mFirstTs = AV_NOPTS_VALUE;  // stream units; maps to time 0
        int64_t mNextTs = AV_NOPTS_VALUE;   // guess for packets without stamps
        RawConversion mConversion = kRawNone;
        int mRawFrameBytes = 0;  // raw tracks: bytes of one delivered frame
        bool mSelected = false;
        bool mEos = false;
        std::deque<AVPacket *> mQueue;  // demuxed, not yet consumed samples
    };

    sp<DataSource> mSource;
    int64_t mPosition = 0;
    AVFormatContext *mContext = nullptr;
    AVIOContext *mIo = nullptr;
    std::vector<Track> mTracks;
    std::vector<int> mStreamToTrack;  // -1 for streams that are not reported
    std::deque<AVPacket *> mProbed;   // read at open, not yet handed out
    bool mDemuxerEos = false;

    ~Demuxer() {
        for (Track &t : mTracks) clearQueue(&t);
        for (AVPacket *p : mProbed) av_packet_free(&p);
        mProbed.clear();
        if (mContext != nullptr) {
            avformat_close_input(&mContext);
        }
        if (mIo != nullptr) {
            av_freep(&mIo->buffer);
            avio_context_free(&mIo);
        }
    }

    static int64_t trailingPaddingOf(const sp<DataSource> &source, const std::string &name,
                                     int streamIndex);
    static void setEncoderDelayAndPadding(const sp<DataSource> &source, const std::string &name,
                                          const AVStream *st, const Track &t);

    static void clearQueue(Track *t) {
        for (AVPacket *p : t->mQueue) av_packet_free(&p);
        t->mQueue.clear();
    }

    static int readPacket(void *opaque, uint8_t *buf, int size) {
        Demuxer *d = static_cast<Demuxer *>(opaque);
        ssize_t n = d->mSource->readAt(d->mPosition, buf, size);
        if (n < 0) {
            return AVERROR(EIO);
        }
        if (n == 0) {
            return AVERROR_EOF;
        }
        d->mPosition += n;
        return (int)n;
    }

    static int64_t seek(void *opaque, int64_t offset, int whence) {
        Demuxer *d = static_cast<Demuxer *>(opaque);
        off64_t size = -1;
        if (d->mSource->getSize(&size) != OK) {
            size = -1;
        }
        switch (whence & ~AVSEEK_FORCE) {
            case AVSEEK_SIZE:
                return size >= 0 ? size : AVERROR(ENOSYS);
            case SEEK_SET:
                break;
            case SEEK_CUR:
                offset += d->mPosition;
                break;
            case SEEK_END:
                if (size < 0) return AVERROR(ENOSYS);
                offset += size;
                break;
            default:
                return AVERROR(EINVAL);
        }
        if (offset < 0) {
            return AVERROR(EINVAL);
        }
        d->mPosition = offset;
        return offset;
    }

    int64_t timeUsOf(const Track &t, int64_t ts) const {
        return av_rescale_q(ts - t.mFirstTs, t.mTimeBase, AVRational{1, 1000000});
    }

    int64_t tsOf(const Track &t, int64_t timeUs) const {
        return t.mFirstTs + av_rescale_q(timeUs, AVRational{1, 1000000}, t.mTimeBase);
    }

    // Gives every packet a time stamp, guessed from its predecessor when the
    // container has none.
    void stamp(Track *t, AVPacket *p) {
        if (p->pts == AV_NOPTS_VALUE) {
            p->pts = p->dts != AV_NOPTS_VALUE ? p->dts : t->mNextTs;
        }
        if (p->pts == AV_NOPTS_VALUE) {
            p->pts = t->mFirstTs;
        }
        t->mNextTs = p->duration > 0 ? p->pts + p->duration : AV_NOPTS_VALUE;
    }

    // One packet from the demuxer (probed ones first); false at the end or on
    // an error, which ends every track.
    bool nextPacket(AVPacket **out) {
        if (!mProbed.empty()) {
            *out = mProbed.front();
            mProbed.pop_front();
            return true;
        }
        if (mDemuxerEos) {
            return false;
        }
        AVPacket *p = av_packet_alloc();
        int ret = av_read_frame(mContext, p);
        if (ret < 0) {
            av_packet_free(&p);
            if (ret != AVERROR_EOF) {
                char msg[AV_ERROR_MAX_STRING_SIZE];
                av_strerror(ret, msg, sizeof(msg));
                ALOGW("demuxer stopped: %s; treating it as the end of stream", msg);
            }
            mDemuxerEos = true;
            return false;
        }
        *out = p;
        return true;
    }

    // Fills the queue of every selected track to at least |depth| samples,
    // or to its end.
    void fill(size_t depth) {
        for (;;) {
            bool wanting = false;
            for (const Track &t : mTracks) {
                if (t.mSelected && !t.mEos && t.mQueue.size() < depth) {
                    wanting = true;
                    break;
                }
            }
            if (!wanting) {
                return;
            }
            AVPacket *p = nullptr;
            if (!nextPacket(&p)) {
                for (Track &t : mTracks) {
                    if (t.mSelected) t.mEos = true;
                }
                return;
            }
            int trackIndex = p->stream_index >= 0 && p->stream_index < (int)mStreamToTrack.size()
                    ? mStreamToTrack[p->stream_index] : -1;
            if (trackIndex < 0 || !mTracks[trackIndex].mSelected) {
                av_packet_free(&p);
                continue;
            }
            Track &t = mTracks[trackIndex];
            stamp(&t, p);
            t.mQueue.push_back(p);
        }
    }

    size_t convertedSize(const Track &t, const AVPacket *p) const {
        switch (t.mConversion) {
            case kRawF64LEToS32:
            case kRawF64BEToS32:
                return (size_t)p->size / 8 * 4;
            default:
                return (size_t)p->size;
        }
    }

    void convert(const Track &t, const AVPacket *p, uint8_t *dst) const {
        const uint8_t *src = p->data;
        const size_t n = p->size;
        switch (t.mConversion) {
            case kRawNone:
                memcpy(dst, src, n);
                break;
            case kRawSwap16:
                for (size_t i = 0; i + 1 < n; i += 2) {
                    dst[i] = src[i + 1];
                    dst[i + 1] = src[i];
                }
                break;
            case kRawSwap24:
                for (size_t i = 0; i + 2 < n; i += 3) {
                    dst[i] = src[i + 2];
                    dst[i + 1] = src[i + 1];
                    dst[i + 2] = src[i];
                }
                break;
            case kRawSwap32:
                for (size_t i = 0; i + 3 < n; i += 4) {
                    AV_WL32(dst + i, AV_RB32(src + i));
                }
                break;
            case kRawS8ToU8:
                for (size_t i = 0; i < n; ++i) dst[i] = src[i] ^ 0x80;
                break;
            case kRawF32LEToS32:
            case kRawF32BEToS32:
                for (size_t i = 0; i + 3 < n; i += 4) {
                    uint32_t bits = t.mConversion == kRawF32LEToS32 ? AV_RL32(src + i)
                                                                    : AV_RB32(src + i);
                    float f;
                    memcpy(&f, &bits, sizeof(f));
                    AV_WL32(dst + i, (uint32_t)fullScaleToS32(f));
                }
                break;
            case kRawF64LEToS32:
            case kRawF64BEToS32:
                for (size_t i = 0; i + 7 < n; i += 8) {
                    uint64_t bits = t.mConversion == kRawF64LEToS32 ? AV_RL64(src + i)
                                                                    : AV_RB64(src + i);
                    double f;
                    memcpy(&f, &bits, sizeof(f));
                    AV_WL32(dst + i / 2, (uint32_t)fullScaleToS32(f));
                }
                break;
        }
    }
};

NuMediaExtractor::NuMediaExtractor() {
}

NuMediaExtractor::~NuMediaExtractor() {
    Mutex::Autolock autoLock(mLock);
    releaseDemuxer_l();
}

void NuMediaExtractor::releaseDemuxer_l() {
    mDemuxer.reset();
    if (mDataSource != NULL) {
        mDataSource->close();
        mDataSource.clear();
    }
}

status_t NuMediaExtractor::setDataSource(
        const sp<MediaHTTPService> & /* httpService */,
        const char *path,
        const KeyedVector<String8, String8> * /* headers */) {
    if (path == NULL) {
        ALOGE("setDataSource: null path");
        return BAD_VALUE;
    }
    if (!strncasecmp(path, "http://", 7) || !strncasecmp(path, "https://", 8)) {
        ALOGE("setDataSource: network sources are not supported on the host ('%s')", path);
        return ERROR_UNSUPPORTED;
    }
    if (!strncasecmp(path, "file://", 7)) {
        path += 7;
    }
    sp<DataSource> source = new FileSource(path);
    return setDataSource(source);
}

status_t NuMediaExtractor::setDataSource(int fd, off64_t offset, off64_t size) {
    int dupFd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (dupFd < 0) {
        ALOGE("setDataSource: cannot duplicate descriptor %d (%s)", fd, strerror(errno));
        return BAD_VALUE;
    }
    sp<DataSource> source = new FileSource(dupFd, offset, size);
    return setDataSource(source);
}

status_t NuMediaExtractor::setDataSource(const sp<DataSource> &source) {
    Mutex::Autolock autoLock(mLock);
    if (mDemuxer != nullptr) {
        return -EINVAL;
    }
    if (source == NULL) {
        ALOGE("setDataSource: null data source");
        return BAD_VALUE;
    }
    status_t err = source->initCheck();
    if (err != OK) {
        ALOGE("setDataSource: data source failed its init check (%d)", err);
        return err;
    }
    err = openDemuxer_l(source);
    if (err != OK) {
        releaseDemuxer_l();
        return err;
    }
    mDataSource = source;
    return OK;
}

// The frames of trailing padding that the demuxer signals on the last packet
// of stream |streamIndex| (FFmpeg learns it from a LAME tag or an Ogg end
// granule only when it reaches that packet).  A second demuxer reads the end
// of the source, so the one that serves samples keeps its place.
// static
int64_t NuMediaExtractor::Demuxer::trailingPaddingOf(const sp<DataSource> &source,
                                                     const std::string &name, int streamIndex) {
    off64_t size = -1;
    if (source->getSize(&size) != OK || size <= 0) {
        return 0;
    }
    Demuxer scan;
    scan.mSource = source;
    uint8_t *ioBuffer = (uint8_t *)av_malloc(kAvioBufferSize);
    if (ioBuffer == nullptr) {
        return 0;
    }
    scan.mIo = avio_alloc_context(ioBuffer, kAvioBufferSize, 0, &scan, &Demuxer::readPacket,
                                  nullptr, &Demuxer::seek);
    if (scan.mIo == nullptr) {
        av_free(ioBuffer);
        return 0;
    }
    scan.mIo->seekable = AVIO_SEEKABLE_NORMAL;
    scan.mContext = avformat_alloc_context();
    if (scan.mContext == nullptr) {
        return 0;
    }
    scan.mContext->pb = scan.mIo;
    scan.mContext->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (avformat_open_input(&scan.mContext, name.c_str(), nullptr, nullptr) < 0) {
        scan.mContext = nullptr;  // freed by the failed open
        return 0;
    }
    AVFormatContext *ctx = scan.mContext;
    if (streamIndex >= (int)ctx->nb_streams) {
        return 0;
    }
    AVStream *st = ctx->streams[streamIndex];
    if (st->duration != AV_NOPTS_VALUE && st->duration > 0) {
        const int64_t start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
        const int64_t target = start + st->duration
                - av_rescale_q(kPaddingScanUs, AVRational{1, 1000000}, st->time_base);
        if (target > start) {
            avformat_seek_file(ctx, streamIndex, INT64_MIN, target, target, 0);
        }
    }
    int64_t padding = 0;
    AVPacket *p = av_packet_alloc();
    while (p != nullptr && av_read_frame(ctx, p) >= 0) {
        if (p->stream_index == streamIndex) {
            size_t sideSize = 0;
            const uint8_t *side = av_packet_get_side_data(p, AV_PKT_DATA_SKIP_SAMPLES, &sideSize);
            padding = side != nullptr && sideSize >= 8 ? AV_RL32(side + 4) : 0;
        }
        av_packet_unref(p);
    }
    av_packet_free(&p);
    return padding;
}

// Decoded audio begins at the stream's start time, which lies after its first
// packet by the encoder delay (MP3 LAME/Xing delay, AAC priming, Opus
// pre-skip), and ends before the last packet does by the padding.  The codec
// trims both, as the platform's decoders do with these keys.
// static
void NuMediaExtractor::Demuxer::setEncoderDelayAndPadding(const sp<DataSource> &source,
                                                          const std::string &name,
                                                          const AVStream *st, const Track &t) {
    const AVCodecParameters *par = st->codecpar;
    if (par->codec_type != AVMEDIA_TYPE_AUDIO || par->sample_rate <= 0
            || ffmpeg::mimeForCodec(par->codec_type, par->codec_id) == MEDIA_MIMETYPE_AUDIO_RAW) {
        return;
    }
    int64_t delay = par->initial_padding;
    if (st->start_time != AV_NOPTS_VALUE && t.mFirstTs != AV_NOPTS_VALUE
            && st->start_time > t.mFirstTs) {
        delay = av_rescale_q(st->start_time - t.mFirstTs, st->time_base,
                             AVRational{1, par->sample_rate});
    }
    if (delay > 0) {
        t.mFormat->setInt32("encoder-delay", (int32_t)std::min<int64_t>(delay, INT32_MAX));
    }
    const int64_t padding = trailingPaddingOf(source, name, t.mStreamIndex);
    if (padding > 0) {
        t.mFormat->setInt32("encoder-padding", (int32_t)std::min<int64_t>(padding, INT32_MAX));
    }
}

status_t NuMediaExtractor::openDemuxer_l(const sp<DataSource> &source) {
    std::unique_ptr<Demuxer> d(new Demuxer);
    d->mSource = source;

    uint8_t *ioBuffer = (uint8_t *)av_malloc(kAvioBufferSize);
    if (ioBuffer == nullptr) {
        return NO_MEMORY;
    }
    d->mIo = avio_alloc_context(ioBuffer, kAvioBufferSize, 0, d.get(),
                                &Demuxer::readPacket, nullptr, &Demuxer::seek);
    if (d->mIo == nullptr) {
        av_free(ioBuffer);
        return NO_MEMORY;
    }
    off64_t size = -1;
    d->mIo->seekable = source->getSize(&size) == OK ? AVIO_SEEKABLE_NORMAL : 0;
    if (size == 0) {
        ALOGE("setDataSource: empty source");
        return ERROR_MALFORMED;
    }

    d->mContext = avformat_alloc_context();
    if (d->mContext == nullptr) {
        return NO_MEMORY;
    }
    d->mContext->pb = d->mIo;
    d->mContext->flags |= AVFMT_FLAG_CUSTOM_IO;

    // The file name helps FFmpeg's probe through its extension only.
    std::string name = source->toString().c_str();
    if (name.rfind("FileSource(", 0) == 0 && name.size() > 12 && name.back() == ')') {
        name = name.substr(11, name.size() - 12);
    }
    int ret = avformat_open_input(&d->mContext, name.c_str(), nullptr, nullptr);
    if (ret < 0) {
        // avformat_open_input frees the context on failure.
        d->mContext = nullptr;
        char msg[AV_ERROR_MAX_STRING_SIZE];
        av_strerror(ret, msg, sizeof(msg));
        ALOGE("setDataSource: no media format recognised (%s)", msg);
        return ERROR_UNSUPPORTED;
    }
    ret = avformat_find_stream_info(d->mContext, nullptr);
    if (ret < 0) {
        char msg[AV_ERROR_MAX_STRING_SIZE];
        av_strerror(ret, msg, sizeof(msg));
        ALOGE("setDataSource: cannot read stream information (%s)", msg);
        return ERROR_MALFORMED;
    }

    AVFormatContext *ctx = d->mContext;
    d->mStreamToTrack.assign(ctx->nb_streams, -1);
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        AVStream *st = ctx->streams[i];
        const AVCodecParameters *par = st->codecpar;
        if (st->disposition & AV_DISPOSITION_ATTACHED_PIC) {
            continue;  // cover art is not a track
        }
        if (par->codec_type != AVMEDIA_TYPE_AUDIO && par->codec_type != AVMEDIA_TYPE_VIDEO
                && par->codec_type != AVMEDIA_TYPE_SUBTITLE) {
            continue;
        }
        if (par->codec_type == AVMEDIA_TYPE_AUDIO
                && (par->sample_rate <= 0 || par->ch_layout.nb_channels <= 0
                    || par->codec_id == AV_CODEC_ID_NONE)) {
            ALOGW("stream %u: audio without a known codec, rate or channel count; skipped", i);
            continue;
        }
        Demuxer::Track t;
        t.mStreamIndex = (int)i;
        t.mTimeBase = st->time_base;
        sp<AMessage> format = new AMessage;
        std::string mime = ffmpeg::mimeForCodec(par->codec_type, par->codec_id);
        format->setString("mime", mime.c_str());
        format->setString("ffmpeg-codec", avcodec_get_name(par->codec_id));
        if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
            format->setInt32("sample-rate", par->sample_rate);
            format->setInt32("channel-count", par->ch_layout.nb_channels);
            if (par->ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
                // Native AUDIO_CHANNEL_OUT_* masks are the WAVE masks as
                // they stand (stereo 0x3); only Java's AudioFormat shifts
                // them by two.
                format->setInt32("channel-mask", (int32_t)par->ch_layout.u.mask);
            }
            if (par->bit_rate > 0) {
                format->setInt32("bitrate", (int32_t)std::min<int64_t>(par->bit_rate, INT32_MAX));
            }
            if (par->block_align > 0) {
                format->setInt32("block-align", par->block_align);
            }
            int bits = 0;
            if (mime == MEDIA_MIMETYPE_AUDIO_RAW) {
                switch (par->codec_id) {
                    case AV_CODEC_ID_PCM_U8: bits = 8; break;
                    case AV_CODEC_ID_PCM_S8: bits = 8; t.mConversion = kRawS8ToU8; break;
                    case AV_CODEC_ID_PCM_S16LE: bits = 16; break;
                    case AV_CODEC_ID_PCM_S16BE: bits = 16; t.mConversion = kRawSwap16; break;
                    case AV_CODEC_ID_PCM_S24LE: bits = 24; break;
                    case AV_CODEC_ID_PCM_S24BE: bits = 24; t.mConversion = kRawSwap24; break;
                    case AV_CODEC_ID_PCM_S32LE: bits = 32; break;
                    case AV_CODEC_ID_PCM_S32BE: bits = 32; t.mConversion = kRawSwap32; break;
                    case AV_CODEC_ID_PCM_F32LE: bits = 32; t.mConversion = kRawF32LEToS32; break;
                    case AV_CODEC_ID_PCM_F32BE: bits = 32; t.mConversion = kRawF32BEToS32; break;
                    case AV_CODEC_ID_PCM_F64LE: bits = 32; t.mConversion = kRawF64LEToS32; break;
                    case AV_CODEC_ID_PCM_F64BE: bits = 32; t.mConversion = kRawF64BEToS32; break;
                    default: break;
                }
                // The platform's AudioFormat encodings of what we deliver.
                format->setInt32("pcm-encoding",
                                 bits == 8 ? 3 : bits == 24 ? 21 : bits == 32 ? 22 : 2);
                t.mRawFrameBytes = (bits > 0 ? bits : 16) / 8 * std::max(par->ch_layout.nb_channels, 1);
            } else if (par->bits_per_raw_sample > 0) {
                bits = par->bits_per_raw_sample;
            } else if (par->codec_id == AV_CODEC_ID_APE || par->codec_id == AV_CODEC_ID_ALAC) {
                bits = par->bits_per_coded_sample;
            }
            if (bits > 0) {
                format->setInt32("bits-per-sample", bits);
            }
            if (ffmpeg::isDsd(par->codec_id)) {
                format->setString("dsd-format", avcodec_get_name(par->codec_id));
            }
        } else if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
            format->setInt32("width", par->width);
            format->setInt32("height", par->height);
        }
        if (par->extradata_size > 0) {
            format->setBuffer("csd-0", ABuffer::CreateAsCopy(par->extradata, par->extradata_size));
        }
        if (par->codec_id == AV_CODEC_ID_OPUS) {
            // The platform's Opus convention: csd-1 codec delay and csd-2
            // seek pre-roll, both in nanoseconds.
            int64_t delayNs = av_rescale(par->initial_padding > 0 ? par->initial_padding
                    : (par->extradata_size >= 12 ? AV_RL16(par->extradata + 10) : 0),
                    1000000000, 48000);
            int64_t prerollNs = 80000000;
            format->setBuffer("csd-1", ABuffer::CreateAsCopy(&delayNs, sizeof(delayNs)));
            format->setBuffer("csd-2", ABuffer::CreateAsCopy(&prerollNs, sizeof(prerollNs)));
        }
        // The largest sample a codec input buffer must hold.
        int32_t maxInputSize = 0;
        for (int e = 0; e < avformat_index_get_entries_count(st); ++e) {
            const AVIndexEntry *entry = avformat_index_get_entry(st, e);
            if (entry != nullptr && entry->size > maxInputSize) maxInputSize = entry->size;
        }
        format->setInt32("max-input-size", std::max(maxInputSize + 1024, kMinMaxInputSize));
        t.mFormat = format;
        d->mStreamToTrack[i] = (int)d->mTracks.size();
        d->mTracks.push_back(t);
    }
    if (d->mTracks.empty()) {
        ALOGE("setDataSource: no usable stream in the file");
        return ERROR_UNSUPPORTED;
    }

    // Learn each track's first time stamp, which becomes its time 0.  The
    // packets read here are kept and handed out first.
    size_t stamped = 0;
    for (int n = 0; n < kMaxProbePackets && stamped < d->mTracks.size(); ++n) {
        AVPacket *p = av_packet_alloc();
        if (av_read_frame(ctx, p) < 0) {
            av_packet_free(&p);
            break;
        }
        int ti = p->stream_index < (int)d->mStreamToTrack.size()
                ? d->mStreamToTrack[p->stream_index] : -1;
        if (ti >= 0 && d->mTracks[ti].mFirstTs == AV_NOPTS_VALUE) {
            int64_t ts = p->pts != AV_NOPTS_VALUE ? p->pts : p->dts;
            if (ts != AV_NOPTS_VALUE) {
                d->mTracks[ti].mFirstTs = ts;
                ++stamped;
            }
        }
        d->mProbed.push_back(p);
    }
    bool anyPackets = !d->mProbed.empty();
    for (Demuxer::Track &t : d->mTracks) {
        AVStream *st = ctx->streams[t.mStreamIndex];
        if (t.mFirstTs == AV_NOPTS_VALUE) {
            t.mFirstTs = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
        }
        // Duration from the first sample: the stream's own, or the
        // container's where the stream has none (Matroska, some Ogg).
        int64_t durationUs = -1;
        if (st->duration != AV_NOPTS_VALUE && st->duration > 0) {
            durationUs = av_rescale_q(st->duration, st->time_base, AVRational{1, 1000000});
        } else if (ctx->duration != AV_NOPTS_VALUE && ctx->duration > 0) {
            durationUs = av_rescale(ctx->duration, 1000000, AV_TIME_BASE);
        }
        if (durationUs >= 0) {
            t.mFormat->setInt64("durationUs", durationUs);
        }
        Demuxer::setEncoderDelayAndPadding(source, name, st, t);
    }
    if (!anyPackets) {
        ALOGE("setDataSource: the file holds no samples");
        return ERROR_MALFORMED;
    }
    ALOGV("opened %s: %zu tracks", ctx->iformat->name, d->mTracks.size());
    mDemuxer = std::move(d);
    return OK;
}

size_t NuMediaExtractor::countTracks() const {
    Mutex::Autolock autoLock(mLock);
    return mDemuxer == nullptr ? 0 : mDemuxer->mTracks.size();
}

status_t NuMediaExtractor::getTrackFormat(size_t index, sp<AMessage> *format,
                                          uint32_t /* flags */) const {
    Mutex::Autolock autoLock(mLock);
    *format = NULL;
    if (mDemuxer == nullptr || index >= mDemuxer->mTracks.size()) {
        return -ERANGE;
    }
    *format = mDemuxer->mTracks[index].mFormat->dup();
    return OK;
}

status_t NuMediaExtractor::getFileFormat(sp<AMessage> *format) const {
    Mutex::Autolock autoLock(mLock);
    *format = NULL;
    if (mDemuxer == nullptr) {
        return NO_INIT;
    }
    sp<AMessage> msg = new AMessage;
    const char *name = mDemuxer->mContext->iformat->name;
    std::string mime = ffmpeg::mimeForContainer(name);
    msg->setString("mime", mime.c_str());
    if (mDemuxer->mContext->duration != AV_NOPTS_VALUE) {
        msg->setInt64("durationUs", av_rescale(mDemuxer->mContext->duration, 1000000,
                                               AV_TIME_BASE));
    }
    *format = msg;
    return OK;
}

status_t NuMediaExtractor::selectTrack(size_t index, int64_t startTimeUs,
                                       MediaSource::ReadOptions::SeekMode mode) {
    {
        Mutex::Autolock autoLock(mLock);
        if (mDemuxer == nullptr || index >= mDemuxer->mTracks.size()) {
            return -ERANGE;
        }
        Demuxer::Track &t = mDemuxer->mTracks[index];
        if (t.mSelected) {
            return OK;
        }
        t.mSelected = true;
        t.mEos = false;
    }
    if (startTimeUs >= 0) {
        return seekTo(startTimeUs, mode);
    }
    return OK;
}

status_t NuMediaExtractor::unselectTrack(size_t index) {
    Mutex::Autolock autoLock(mLock);
    if (mDemuxer == nullptr || index >= mDemuxer->mTracks.size()) {
        return -ERANGE;
    }
    Demuxer::Track &t = mDemuxer->mTracks[index];
    if (!t.mSelected) {
        return INVALID_OPERATION;
    }
    t.mSelected = false;
    Demuxer::clearQueue(&t);
    return OK;
}

ssize_t NuMediaExtractor::nextTrack_l() const {
    ssize_t best = -1;
    int64_t bestUs = 0;
    for (size_t i = 0; i < mDemuxer->mTracks.size(); ++i) {
        const Demuxer::Track &t = mDemuxer->mTracks[i];
        if (!t.mSelected || t.mQueue.empty()) {
            continue;
        }
        int64_t us = mDemuxer->timeUsOf(t, t.mQueue.front()->pts);
        if (best < 0 || us < bestUs) {
            best = i;
            bestUs = us;
        }
    }
    return best;
}

status_t NuMediaExtractor::fetchSamples_l() {
    if (mDemuxer == nullptr) {
        return NO_INIT;
    }
    mDemuxer->fill(1);
    return nextTrack_l() < 0 ? (status_t)ERROR_END_OF_STREAM : (status_t)OK;
}

status_t NuMediaExtractor::seekTo(int64_t timeUs, MediaSource::ReadOptions::SeekMode mode) {
    Mutex::Autolock autoLock(mLock);
    if (mDemuxer == nullptr) {
        return NO_INIT;
    }
    Demuxer *d = mDemuxer.get();
    ssize_t primary = -1;
    for (size_t i = 0; i < d->mTracks.size(); ++i) {
        if (d->mTracks[i].mSelected) {
            primary = i;
            break;
        }
    }
    if (primary < 0) {
        return ERROR_END_OF_STREAM;
    }
    if (timeUs < 0) {
        timeUs = 0;
    }
    const Demuxer::Track &pt = d->mTracks[primary];

    // FFmpeg lands on or before the target for most containers; where it
    // lands after, retry from further back.
    int64_t backoffUs = 0;
    for (int attempt = 0; attempt < 6; ++attempt) {
        int64_t seekUs = std::max<int64_t>(0, timeUs - backoffUs);
        int64_t ts = d->tsOf(pt, seekUs);
        int ret = avformat_seek_file(d->mContext, pt.mStreamIndex, INT64_MIN, ts, ts, 0);
        if (ret < 0) {
            ret = av_seek_frame(d->mContext, pt.mStreamIndex, ts, AVSEEK_FLAG_BACKWARD);
        }
        if (ret < 0 && seekUs == 0) {
            // Formats without a seek function can still go back to the start.
            ret = av_seek_frame(d->mContext, -1, 0, AVSEEK_FLAG_BYTE | AVSEEK_FLAG_BACKWARD);
        }
        if (ret < 0) {
            char msg[AV_ERROR_MAX_STRING_SIZE];
            av_strerror(ret, msg, sizeof(msg));
            ALOGE("seekTo(%lld): %s", (long long)timeUs, msg);
            return ERROR_UNSUPPORTED;
        }
        for (AVPacket *p : d->mProbed) av_packet_free(&p);
        d->mProbed.clear();
        d->mDemuxerEos = false;
        for (Demuxer::Track &t : d->mTracks) {
            Demuxer::clearQueue(&t);
            t.mEos = false;
            t.mNextTs = AV_NOPTS_VALUE;
        }
        d->fill(1);
        bool landedAfter = false;
        for (const Demuxer::Track &t : d->mTracks) {
            if (t.mSelected && !t.mQueue.empty()
                    && d->timeUsOf(t, t.mQueue.front()->pts) > timeUs) {
                landedAfter = true;
            }
        }
        if (!landedAfter || seekUs == 0) {
            break;
        }
        backoffUs = backoffUs == 0 ? 1000000 : backoffUs * 2;
    }

    // Step each selected track forward to the sample the mode asks for.
    for (Demuxer::Track &t : d->mTracks) {
        if (!t.mSelected) {
            continue;
        }
        for (;;) {
            d->fill(2);
            if (t.mQueue.empty()) {
                break;
            }
            const AVPacket *cur = t.mQueue.front();
            const int64_t curUs = d->timeUsOf(t, cur->pts);
            const bool curKey = (cur->flags & AV_PKT_FLAG_KEY) != 0;
            if (mode == MediaSource::ReadOptions::SEEK_NEXT_SYNC) {
                if (curUs >= timeUs && curKey) break;
            } else {
                // The sample holding the target (a sync sample for the
                // sync modes): stop when the next candidate starts after it.
                if (t.mQueue.size() < 2) break;
                const AVPacket *next = t.mQueue[1];
                const int64_t nextUs = d->timeUsOf(t, next->pts);
                const bool nextKey = (next->flags & AV_PKT_FLAG_KEY) != 0;
                if (nextUs > timeUs) break;
                if (mode != MediaSource::ReadOptions::SEEK_CLOSEST && !nextKey) {
                    // Look further for a later sync sample before the target.
                    bool laterKey = false;
                    for (size_t k = 2; ; ++k) {
                        d->fill(k + 1);
                        if (t.mQueue.size() <= k) break;
                        const AVPacket *q = t.mQueue[k];
                        if (d->timeUsOf(t, q->pts) > timeUs) break;
                        if (q->flags & AV_PKT_FLAG_KEY) {
                            laterKey = true;
                            break;
                        }
                    }
                    if (!laterKey) break;
                }
            }
            AVPacket *drop = t.mQueue.front();
            t.mQueue.pop_front();
            av_packet_free(&drop);
        }
    }
    return nextTrack_l() < 0 ? (status_t)ERROR_END_OF_STREAM : (status_t)OK;
}

status_t NuMediaExtractor::advance() {
    Mutex::Autolock autoLock(mLock);
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    Demuxer::Track &t = mDemuxer->mTracks[nextTrack_l()];
    AVPacket *p = t.mQueue.front();
    t.mQueue.pop_front();
    av_packet_free(&p);
    // As on the platform: stepping off the last sample reports the end.
    return fetchSamples_l();
}

status_t NuMediaExtractor::readSampleData(const sp<ABuffer> &buffer) {
    Mutex::Autolock autoLock(mLock);
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    const Demuxer::Track &t = mDemuxer->mTracks[nextTrack_l()];
    const AVPacket *p = t.mQueue.front();
    const size_t size = mDemuxer->convertedSize(t, p);
    if (buffer->capacity() < size) {
        ALOGV("sample of %zu bytes does not fit a buffer of %zu", size, buffer->capacity());
        return NO_MEMORY;
    }
    mDemuxer->convert(t, p, buffer->base());
    buffer->setRange(0, size);
    if (t.mRawFrameBytes > 0) {
        ffmpeg::countDecodedFrames((int64_t)size / t.mRawFrameBytes);
    }
    return OK;
}

status_t NuMediaExtractor::getSampleSize(size_t *sampleSize) {
    Mutex::Autolock autoLock(mLock);
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    const Demuxer::Track &t = mDemuxer->mTracks[nextTrack_l()];
    *sampleSize = mDemuxer->convertedSize(t, t.mQueue.front());
    return OK;
}

status_t NuMediaExtractor::getSampleTrackIndex(size_t *trackIndex) {
    Mutex::Autolock autoLock(mLock);
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    *trackIndex = nextTrack_l();
    return OK;
}

status_t NuMediaExtractor::getSampleTime(int64_t *sampleTimeUs) {
    Mutex::Autolock autoLock(mLock);
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    const Demuxer::Track &t = mDemuxer->mTracks[nextTrack_l()];
    *sampleTimeUs = mDemuxer->timeUsOf(t, t.mQueue.front()->pts);
    return OK;
}

status_t NuMediaExtractor::getSampleMeta(sp<MetaData> *sampleMeta) {
    Mutex::Autolock autoLock(mLock);
    *sampleMeta = NULL;
    status_t err = fetchSamples_l();
    if (err != OK) {
        return err;
    }
    const Demuxer::Track &t = mDemuxer->mTracks[nextTrack_l()];
    const AVPacket *p = t.mQueue.front();
    sp<MetaData> meta = new MetaData;
    meta->setInt64(kKeyTime, mDemuxer->timeUsOf(t, p->pts));
    if (p->duration > 0) {
        meta->setInt64(kKeyDuration, av_rescale_q(p->duration, t.mTimeBase,
                                                  AVRational{1, 1000000}));
    }
    meta->setInt32(kKeyIsSyncFrame, (p->flags & AV_PKT_FLAG_KEY) != 0);
    *sampleMeta = meta;
    return OK;
}

bool NuMediaExtractor::getCachedDuration(int64_t *durationUs, bool *eos) const {
    // Local files only: everything is "cached".
    Mutex::Autolock autoLock(mLock);
    *durationUs = 0;
    *eos = mDemuxer == nullptr || mDemuxer->mDemuxerEos;
    return false;
}

}  // namespace android
