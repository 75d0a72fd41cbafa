#pragma once

// White-box views of MediaBufferCache and RotavoxSource for their tests.  Both
// classes name these inspectors as friends; nothing else uses them.

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <media/stagefright/foundation/AMessage.h>

#include "RotavoxSource.h"

namespace android {

class MediaBufferCacheInspector {
public:
    explicit MediaBufferCacheInspector(MediaBufferCache* cache) : c(cache) {}

    std::vector<int64_t> times() const {
        std::vector<int64_t> out;
        for (auto it = c->mActiveBuffers.begin(); it != c->mActiveBuffers.end(); ++it) {
            int64_t t = -1;
            (*it)->meta_data().findInt64(kKeyTime, &t);
            out.push_back(t);
        }
        return out;
    }
    // Index of a node in the active list; -1 for end(), -2 for a node that is
    // not in the list at all.
    int indexOf(MediaBufferCache::Node node) const {
        if (node == c->mActiveBuffers.end()) return -1;
        int i = 0;
        for (auto it = c->mActiveBuffers.begin(); it != c->mActiveBuffers.end(); ++it, ++i) {
            if (it == node) return i;
        }
        return -2;
    }
    int continuousIndex() const { return indexOf(c->mNodeContinuousFrom); }
    int readIndex() const { return indexOf(c->mReadNode); }
    size_t activeCount() const { return c->mActiveBuffers.size(); }
    int64_t readPosUs() const { return c->mReadPosUs; }
    void setReadPosUs(int64_t v) { c->mReadPosUs = v; }
    uint32_t cachedBytes() const { return c->mCachedBytes; }

    // Structural invariants that must hold after every public operation.
    // Returns an empty string when they do, else a description.
    std::string checkInvariants() const {
        std::ostringstream err;
        const int cont = continuousIndex();
        const int read = readIndex();
        if (cont == -2) err << "mNodeContinuousFrom outside the list; ";
        if (read == -2) err << "mReadNode outside the list; ";
        if (c->mActiveBuffers.empty() && (cont != -1 || read != -1)) {
            err << "empty list with a valid iterator; ";
        }
        if (read >= 0 && cont >= 0 && read < cont) err << "reader in front of the stretch; ";
        std::vector<int64_t> t = times();
        for (size_t i = 0; i < t.size(); ++i) {
            if (t[i] < 0) err << "buffer " << i << " without time; ";
        }
        if (cont >= 0) {
            for (size_t i = cont + 1; i < t.size(); ++i) {
                if (t[i] <= t[i - 1]) err << "stretch not ascending at " << i << "; ";
            }
        }
        uint64_t bytes = 0;
        std::set<MediaBuffer*> owned;
        for (const List<MediaBuffer*>* list : {&c->mActiveBuffers, &c->mFreeBuffers}) {
            for (auto it = list->begin(); it != list->end(); ++it) {
                bytes += (*it)->size();
                if (!owned.insert(*it).second) err << "buffer owned twice; ";
            }
        }
        // A buffer the cache gave up while it was being played: out of both
        // lists, and counted only while it is bound for the free list.
        if (c->mRetiredBuffer != NULL) {
            if (c->mRetiredToFreeList) bytes += c->mRetiredBuffer->size();
            if (!owned.insert(c->mRetiredBuffer).second) err << "buffer owned twice; ";
        }
        if (bytes != c->mCachedBytes) {
            err << "byte accounting " << c->mCachedBytes << " vs " << bytes << "; ";
        }
        return err.str();
    }

private:
    MediaBufferCache* c;
};

class RotavoxSourceInspector {
public:
    explicit RotavoxSourceInspector(const sp<RotavoxSource>& source) : s(source.get()) {}

    Mutex& lock() { return s->mLock; }
    bool decoding() const { return s->mDecoding.load(); }
    int32_t generation() const { return s->mDecodeGeneration.load(); }

    // The following take the source's lock.
    int64_t cacheStartTimeUs() { Mutex::Autolock l(s->mLock); return s->mCacheStartTimeUs; }
    int64_t cacheEndTimeUs() { Mutex::Autolock l(s->mLock); return s->mCacheEndTimeUs; }
    // For a caller that already holds the source's lock, taken through
    // lock(), which the lock analysis cannot tie to the source's own.
    status_t updateCacheIfNecessary_l(int64_t positionUs) NO_THREAD_SAFETY_ANALYSIS {
        return s->updateCacheIfNecessary_l(positionUs);
    }
    void setTimeOfDay(int (*getTimeOfDay)(struct timeval*, void*)) {
        Mutex::Autolock l(s->mLock);
        s->mGetTimeOfDay = getTimeOfDay;
    }
    std::vector<int64_t> cacheTimes() {
        Mutex::Autolock l(s->mLock);
        return MediaBufferCacheInspector(s->mCache).times();
    }
    std::string cacheInvariants() {
        Mutex::Autolock l(s->mLock);
        return MediaBufferCacheInspector(s->mCache).checkInvariants();
    }

    // Posts a raw message to the source's handler (for malformed messages).
    void post(uint32_t what) {
        sp<AMessage> msg = new AMessage(what, s->mReflector);
        msg->post();
    }

private:
    RotavoxSource* s;
};

}  // namespace android
