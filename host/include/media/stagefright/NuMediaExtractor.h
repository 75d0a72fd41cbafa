/*
 * Host build of the platform's NuMediaExtractor: splits a media file into
 * samples, one selected track or several interleaved by time.  Demuxing is
 * done by FFmpeg's libavformat, which never shows in this header.
 */

#ifndef NU_MEDIA_EXTRACTOR_H_
#define NU_MEDIA_EXTRACTOR_H_

#include <memory>

#include <media/DataSource.h>
#include <media/MediaHTTPService.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABase.h>
#include <utils/Errors.h>
#include <utils/KeyedVector.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/threads.h>

namespace android {

struct ABuffer;
struct AMessage;

struct NuMediaExtractor : public RefBase {
    enum SampleFlags {
        SAMPLE_FLAG_SYNC        = 1,
        SAMPLE_FLAG_ENCRYPTED   = 2,
    };

    NuMediaExtractor();

    status_t setDataSource(
            const sp<MediaHTTPService> &httpService,
            const char *path,
            const KeyedVector<String8, String8> *headers = NULL);

    // Plays the |size| bytes at |offset| of |fd|; the descriptor is
    // duplicated, the caller keeps its own.
    status_t setDataSource(int fd, off64_t offset, off64_t size);

    status_t setDataSource(const sp<DataSource> &datasource);

    size_t countTracks() const;
    status_t getTrackFormat(size_t index, sp<AMessage> *format, uint32_t flags = 0) const;

    status_t getFileFormat(sp<AMessage> *format) const;

    status_t selectTrack(size_t index, int64_t startTimeUs = -1ll,
            MediaSource::ReadOptions::SeekMode mode =
                MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
    status_t unselectTrack(size_t index);

    status_t seekTo(
            int64_t timeUs,
            MediaSource::ReadOptions::SeekMode mode =
                MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);

    status_t advance();
    // Copies the current sample to |buffer| at offset 0.  NO_MEMORY when it
    // does not fit; the sample stays current.
    status_t readSampleData(const sp<ABuffer> &buffer);
    status_t getSampleSize(size_t *sampleSize);
    status_t getSampleTrackIndex(size_t *trackIndex);
    status_t getSampleTime(int64_t *sampleTimeUs);
    status_t getSampleMeta(sp<MetaData> *sampleMeta);

    bool getCachedDuration(int64_t *durationUs, bool *eos) const;

    // Opaque demuxer state, defined next to the implementation.
    struct Demuxer;

protected:
    virtual ~NuMediaExtractor();

private:
    status_t openDemuxer_l(const sp<DataSource> &source) REQUIRES(mLock);
    status_t fetchSamples_l() REQUIRES(mLock);
    ssize_t nextTrack_l() const REQUIRES(mLock);
    void releaseDemuxer_l() REQUIRES(mLock);

    // Guards every member: the player, the decoder's looper and the reader
    // of raw samples call in from different threads.
    mutable Mutex mLock;

    sp<DataSource> mDataSource GUARDED_BY(mLock);
    std::unique_ptr<Demuxer> mDemuxer GUARDED_BY(mLock);

    DISALLOW_EVIL_CONSTRUCTORS(NuMediaExtractor);
};

}  // namespace android

#endif  // NU_MEDIA_EXTRACTOR_H_
