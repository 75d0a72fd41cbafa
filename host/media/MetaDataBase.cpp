#define LOG_TAG "MetaDataBase"

#include <media/stagefright/MetaDataBase.h>

#include <inttypes.h>
#include <string.h>

#include <map>
#include <vector>

#include <log/log.h>

namespace android {

namespace {

struct TypedData {
    uint32_t mType = MetaDataBase::TYPE_NONE;
    std::vector<uint8_t> mBytes;
};

struct Rect {
    int32_t mLeft, mTop, mRight, mBottom;
};

void makeFourCCString(uint32_t x, char* s) {
    s[0] = static_cast<char>(x >> 24);
    s[1] = static_cast<char>((x >> 16) & 0xff);
    s[2] = static_cast<char>((x >> 8) & 0xff);
    s[3] = static_cast<char>(x & 0xff);
    s[4] = '\0';
    for (int i = 0; i < 4; ++i) {
        if (s[i] < 0x20 || s[i] > 0x7e) s[i] = '?';
    }
}

String8 describe(const TypedData& item) {
    String8 out;
    const void* data = item.mBytes.data();
    const size_t size = item.mBytes.size();
    switch (item.mType) {
        case MetaDataBase::TYPE_NONE:
            out = String8::format("no_type(%zu bytes)", size);
            break;
        case MetaDataBase::TYPE_C_STRING:
            out = String8::format("string(%s)", static_cast<const char*>(data));
            break;
        case MetaDataBase::TYPE_INT32: {
            int32_t v;
            memcpy(&v, data, sizeof(v));
            out = String8::format("int32_t(%d)", v);
            break;
        }
        case MetaDataBase::TYPE_INT64: {
            int64_t v;
            memcpy(&v, data, sizeof(v));
            out = String8::format("int64_t(%" PRId64 ")", v);
            break;
        }
        case MetaDataBase::TYPE_FLOAT: {
            float v;
            memcpy(&v, data, sizeof(v));
            out = String8::format("float(%f)", v);
            break;
        }
        case MetaDataBase::TYPE_POINTER: {
            void* v;
            memcpy(&v, data, sizeof(v));
            out = String8::format("void *(%p)", v);
            break;
        }
        case MetaDataBase::TYPE_RECT: {
            Rect r;
            memcpy(&r, data, sizeof(r));
            out = String8::format("Rect(%d, %d, %d, %d)", r.mLeft, r.mTop, r.mRight, r.mBottom);
            break;
        }
        default: {
            char fourcc[5];
            makeFourCCString(item.mType, fourcc);
            out = String8::format("(%s, %zu bytes:", fourcc, size);
            const uint8_t* bytes = static_cast<const uint8_t*>(data);
            for (size_t i = 0; i < size && i < 32; ++i) out.appendFormat(" %02x", bytes[i]);
            out.append(size > 32 ? " ...)" : ")");
            break;
        }
    }
    return out;
}

}  // namespace

// Entries by key; a std::map keeps toString() in key order.
struct MetaDataBase::MetaDataInternal {
    std::map<uint32_t, TypedData> mItems;
};

MetaDataBase::MetaDataBase() : mInternalData(new MetaDataInternal) {}

MetaDataBase::MetaDataBase(const MetaDataBase& from)
    : mInternalData(new MetaDataInternal(*from.mInternalData)) {}

MetaDataBase& MetaDataBase::operator=(const MetaDataBase& rhs) {
    if (this != &rhs) *mInternalData = *rhs.mInternalData;
    return *this;
}

MetaDataBase::~MetaDataBase() {
    delete mInternalData;
}

void MetaDataBase::clear() {
    mInternalData->mItems.clear();
}

bool MetaDataBase::remove(uint32_t key) {
    return mInternalData->mItems.erase(key) > 0;
}

bool MetaDataBase::setCString(uint32_t key, const char* value) {
    if (value == nullptr) value = "";
    return setData(key, TYPE_C_STRING, value, strlen(value) + 1);
}

bool MetaDataBase::setInt32(uint32_t key, int32_t value) {
    return setData(key, TYPE_INT32, &value, sizeof(value));
}

bool MetaDataBase::setInt64(uint32_t key, int64_t value) {
    return setData(key, TYPE_INT64, &value, sizeof(value));
}

bool MetaDataBase::setFloat(uint32_t key, float value) {
    return setData(key, TYPE_FLOAT, &value, sizeof(value));
}

bool MetaDataBase::setPointer(uint32_t key, void* value) {
    return setData(key, TYPE_POINTER, &value, sizeof(value));
}

bool MetaDataBase::setRect(uint32_t key, int32_t left, int32_t top, int32_t right,
                           int32_t bottom) {
    const Rect r = {left, top, right, bottom};
    return setData(key, TYPE_RECT, &r, sizeof(r));
}

namespace {

// Copies an entry of exactly |type| and |size| into |out|.
bool findFixed(const MetaDataBase& meta, uint32_t key, uint32_t type, size_t size, void* out) {
    uint32_t foundType;
    const void* data;
    size_t foundSize;
    if (!meta.findData(key, &foundType, &data, &foundSize) || foundType != type ||
        foundSize != size) {
        return false;
    }
    memcpy(out, data, size);
    return true;
}

}  // namespace

bool MetaDataBase::findCString(uint32_t key, const char** value) const {
    uint32_t type;
    const void* data;
    size_t size;
    if (!findData(key, &type, &data, &size) || type != TYPE_C_STRING) return false;
    *value = static_cast<const char*>(data);
    return true;
}

bool MetaDataBase::findInt32(uint32_t key, int32_t* value) const {
    return findFixed(*this, key, TYPE_INT32, sizeof(*value), value);
}

bool MetaDataBase::findInt64(uint32_t key, int64_t* value) const {
    return findFixed(*this, key, TYPE_INT64, sizeof(*value), value);
}

bool MetaDataBase::findFloat(uint32_t key, float* value) const {
    return findFixed(*this, key, TYPE_FLOAT, sizeof(*value), value);
}

bool MetaDataBase::findPointer(uint32_t key, void** value) const {
    return findFixed(*this, key, TYPE_POINTER, sizeof(*value), value);
}

bool MetaDataBase::findRect(uint32_t key, int32_t* left, int32_t* top, int32_t* right,
                            int32_t* bottom) const {
    Rect r;
    if (!findFixed(*this, key, TYPE_RECT, sizeof(r), &r)) return false;
    *left = r.mLeft;
    *top = r.mTop;
    *right = r.mRight;
    *bottom = r.mBottom;
    return true;
}

bool MetaDataBase::setData(uint32_t key, uint32_t type, const void* data, size_t size) {
    auto& items = mInternalData->mItems;
    auto it = items.find(key);
    const bool overwrote = it != items.end();
    TypedData& item = overwrote ? it->second : items[key];
    item.mType = type;
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (bytes == nullptr) size = 0;
    item.mBytes.assign(bytes, bytes + size);
    return overwrote;
}

bool MetaDataBase::findData(uint32_t key, uint32_t* type, const void** data, size_t* size) const {
    const auto& items = mInternalData->mItems;
    auto it = items.find(key);
    if (it == items.end()) return false;
    *type = it->second.mType;
    *data = it->second.mBytes.data();
    *size = it->second.mBytes.size();
    return true;
}

bool MetaDataBase::hasData(uint32_t key) const {
    return mInternalData->mItems.count(key) > 0;
}

String8 MetaDataBase::toString() const {
    String8 s;
    bool first = true;
    for (const auto& entry : mInternalData->mItems) {
        char fourcc[5];
        makeFourCCString(entry.first, fourcc);
        if (!first) s.append(", ");
        first = false;
        s.appendFormat("%s: %s", fourcc, describe(entry.second).c_str());
    }
    return s;
}

void MetaDataBase::dumpToLog() const {
    for (const auto& entry : mInternalData->mItems) {
        char fourcc[5];
        makeFourCCString(entry.first, fourcc);
        ALOGI("%s: %s", fourcc, describe(entry.second).c_str());
    }
}

}  // namespace android
