#define LOG_TAG "AMessage"

#include <media/stagefright/foundation/AMessage.h>

#include <ctype.h>
#include <errno.h>
#include <inttypes.h>
#include <string.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AString.h>

#include "ALooperRoster.h"

namespace android {

status_t AReplyToken::setReply(const sp<AMessage> &reply) {
    if (mReplied) {
        ALOGE("trying to post a duplicate reply");
        return -EBUSY;
    }
    CHECK(mReply == NULL);
    mReply = reply;
    mReplied = true;
    return OK;
}

AMessage::AMessage(void)
    : mWhat(0),
      mTarget(0) {
}

AMessage::AMessage(uint32_t what, const sp<const AHandler> &handler)
    : mWhat(what),
      mTarget(0) {
    setTarget(handler);
}

AMessage::~AMessage() {
    clear();
}

void AMessage::setWhat(uint32_t what) {
    mWhat = what;
}

uint32_t AMessage::what() const {
    return mWhat;
}

void AMessage::setTarget(const sp<const AHandler> &handler) {
    if (handler == NULL) {
        mTarget = 0;
        mHandler.clear();
        mLooper.clear();
    } else {
        ALooperRoster::get().getTarget(handler.get(), &mTarget, &mLooper);
        mHandler = handler->getHandler();
    }
}

void AMessage::clear() {
    mItems.clear();
}

ssize_t AMessage::findItemIndex(const char *name) const {
    for (size_t i = 0; i < mItems.size(); ++i) {
        if (!strcmp(mItems[i].mName.c_str(), name)) {
            return i;
        }
    }
    return -1;
}

AMessage::Item *AMessage::allocateItem(const char *name) {
    ssize_t i = findItemIndex(name);
    if (i >= 0) {
        // Replacing an entry drops whatever it held before.
        Item &item = mItems[i];
        item.mStringValue.clear();
        item.mRefValue.clear();
        return &item;
    }

    mItems.emplace_back();
    Item &item = mItems.back();
    item.mName.setTo(name);
    return &item;
}

const AMessage::Item *AMessage::findItem(const char *name, Type type) const {
    ssize_t i = findItemIndex(name);
    if (i < 0) {
        return NULL;
    }
    const Item *item = &mItems[i];
    return item->mType == type ? item : NULL;
}

bool AMessage::contains(const char *name) const {
    return findItemIndex(name) >= 0;
}

#define BASIC_TYPE(NAME,FIELDNAME,TYPENAME)                             \
void AMessage::set##NAME(const char *name, TYPENAME value) {            \
    Item *item = allocateItem(name);                                    \
                                                                        \
    item->mType = kType##NAME;                                          \
    item->u.FIELDNAME = value;                                          \
}                                                                       \
                                                                        \
/* NOLINT added to avoid incorrect warning/fix from clang.tidy */       \
bool AMessage::find##NAME(const char *name, TYPENAME *value) const {  /* NOLINT */ \
    const Item *item = findItem(name, kType##NAME);                     \
    if (item) {                                                         \
        *value = item->u.FIELDNAME;                                     \
        return true;                                                    \
    }                                                                   \
    return false;                                                       \
}

BASIC_TYPE(Int32,int32Value,int32_t)
BASIC_TYPE(Int64,int64Value,int64_t)
BASIC_TYPE(Size,sizeValue,size_t)
BASIC_TYPE(Float,floatValue,float)
BASIC_TYPE(Double,doubleValue,double)
BASIC_TYPE(Pointer,ptrValue,void *)

#undef BASIC_TYPE

bool AMessage::findAsInt64(const char *name, int64_t *value) const {
    ssize_t i = findItemIndex(name);
    if (i < 0) {
        return false;
    }
    const Item &item = mItems[i];
    switch (item.mType) {
        case kTypeInt64:
            *value = item.u.int64Value;
            return true;
        case kTypeInt32:
            *value = item.u.int32Value;
            return true;
        default:
            return false;
    }
}

bool AMessage::findAsFloat(const char *name, float *value) const {
    ssize_t i = findItemIndex(name);
    if (i < 0) {
        return false;
    }
    const Item &item = mItems[i];
    switch (item.mType) {
        case kTypeFloat:
            *value = item.u.floatValue;
            return true;
        case kTypeDouble:
            *value = (float)item.u.doubleValue;
            return true;
        case kTypeInt64:
            *value = (float)item.u.int64Value;
            return true;
        case kTypeInt32:
            *value = (float)item.u.int32Value;
            return true;
        case kTypeSize:
            *value = (float)item.u.sizeValue;
            return true;
        default:
            return false;
    }
}

void AMessage::setString(
        const char *name, const char *s, ssize_t len) {
    Item *item = allocateItem(name);
    item->mType = kTypeString;
    if (s == NULL) {
        item->mStringValue.clear();
    } else {
        item->mStringValue.setTo(s, len < 0 ? strlen(s) : len);
    }
}

void AMessage::setString(
        const char *name, const AString &s) {
    setString(name, s.c_str(), s.size());
}

void AMessage::setObject(const char *name, const sp<RefBase> &obj) {
    Item *item = allocateItem(name);
    item->mType = kTypeObject;
    item->mRefValue = obj;
}

void AMessage::setBuffer(const char *name, const sp<ABuffer> &buffer) {
    Item *item = allocateItem(name);
    item->mType = kTypeBuffer;
    item->mRefValue = buffer;
}

void AMessage::setMessage(const char *name, const sp<AMessage> &obj) {
    Item *item = allocateItem(name);
    item->mType = kTypeMessage;
    item->mRefValue = obj;
}

void AMessage::setRect(
        const char *name,
        int32_t left, int32_t top, int32_t right, int32_t bottom) {
    Item *item = allocateItem(name);
    item->mType = kTypeRect;

    item->u.rectValue.mLeft = left;
    item->u.rectValue.mTop = top;
    item->u.rectValue.mRight = right;
    item->u.rectValue.mBottom = bottom;
}

bool AMessage::findString(const char *name, AString *value) const {
    const Item *item = findItem(name, kTypeString);
    if (item) {
        *value = item->mStringValue;
        return true;
    }
    return false;
}

bool AMessage::findObject(const char *name, sp<RefBase> *obj) const {
    const Item *item = findItem(name, kTypeObject);
    if (item) {
        *obj = item->mRefValue;
        return true;
    }
    return false;
}

bool AMessage::findBuffer(const char *name, sp<ABuffer> *buf) const {
    const Item *item = findItem(name, kTypeBuffer);
    if (item) {
        *buf = static_cast<ABuffer *>(item->mRefValue.get());
        return true;
    }
    return false;
}

bool AMessage::findMessage(const char *name, sp<AMessage> *obj) const {
    const Item *item = findItem(name, kTypeMessage);
    if (item) {
        *obj = static_cast<AMessage *>(item->mRefValue.get());
        return true;
    }
    return false;
}

bool AMessage::findRect(
        const char *name,
        int32_t *left, int32_t *top, int32_t *right, int32_t *bottom) const {
    const Item *item = findItem(name, kTypeRect);
    if (item == NULL) {
        return false;
    }

    *left = item->u.rectValue.mLeft;
    *top = item->u.rectValue.mTop;
    *right = item->u.rectValue.mRight;
    *bottom = item->u.rectValue.mBottom;

    return true;
}

void AMessage::deliver() {
    sp<AHandler> handler = mHandler.promote();
    if (handler == NULL) {
        ALOGW("failed to deliver message as target handler %d is gone.", mTarget);
        return;
    }
    if (!ALooperRoster::get().isRegistered(mTarget, handler.get())) {
        ALOGW("failed to deliver message as target handler %d is unregistered.", mTarget);
        return;
    }

    handler->deliverMessage(this);
}

status_t AMessage::post(int64_t delayUs) {
    sp<ALooper> looper = mLooper.promote();
    if (looper == NULL) {
        ALOGW("failed to post message as target looper for handler %d is gone.", mTarget);
        return -ENOENT;
    }
    sp<AHandler> handler = mHandler.promote();
    if (handler == NULL || !ALooperRoster::get().isRegistered(mTarget, handler.get())) {
        ALOGW("failed to post message as target handler %d is gone or unregistered.", mTarget);
        return -ENOENT;
    }

    looper->post(this, delayUs);
    return OK;
}

status_t AMessage::postAndAwaitResponse(sp<AMessage> *response) {
    sp<ALooper> looper = mLooper.promote();
    if (looper == NULL) {
        ALOGW("failed to post message as target looper for handler %d is gone.", mTarget);
        return -ENOENT;
    }

    sp<AReplyToken> token = looper->createReplyToken();
    if (token == NULL) {
        ALOGE("failed to create reply token");
        return -ENOMEM;
    }
    setObject("replyID", token);

    status_t err = post(0 /* delayUs */);
    if (err != OK) {
        return err;
    }
    return looper->awaitResponse(token, response);
}

status_t AMessage::postReply(const sp<AReplyToken> &replyToken) {
    if (replyToken == NULL) {
        ALOGW("failed to post reply to a NULL token");
        return -ENOENT;
    }
    sp<ALooper> looper = replyToken->getLooper();
    if (looper == NULL) {
        ALOGW("failed to post reply as target looper is gone.");
        return -ENOENT;
    }
    return looper->postReply(replyToken, this);
}

bool AMessage::senderAwaitsResponse(sp<AReplyToken> *replyToken) {
    sp<RefBase> tmp;
    bool found = findObject("replyID", &tmp);

    if (!found) {
        return false;
    }

    *replyToken = static_cast<AReplyToken *>(tmp.get());
    tmp.clear();
    // The token is consumed: a second caller must not answer the same request.
    removeEntryAt(findItemIndex("replyID"));

    return *replyToken != NULL;
}

sp<AMessage> AMessage::dup() const {
    sp<AMessage> msg = new AMessage;
    msg->mWhat = mWhat;
    msg->mTarget = mTarget;
    msg->mHandler = mHandler;
    msg->mLooper = mLooper;
    msg->mItems = mItems;

    for (Item &item : msg->mItems) {
        if (item.mType == kTypeMessage && item.mRefValue != NULL) {
            item.mRefValue = static_cast<AMessage *>(item.mRefValue.get())->dup();
        }
    }

    return msg;
}

static void appendIndent(AString *s, int32_t indent) {
    static const char kWhitespace[] =
        "                                        "
        "                                        ";

    CHECK_LT((size_t)indent, sizeof(kWhitespace));

    s->append(kWhitespace, indent);
}

static bool isFourcc(uint32_t what) {
    return isprint(what & 0xff)
        && isprint((what >> 8) & 0xff)
        && isprint((what >> 16) & 0xff)
        && isprint((what >> 24) & 0xff);
}

AString AMessage::debugString(int32_t indent) const {
    AString s = "AMessage(what = ";

    AString tmp;
    if (isFourcc(mWhat)) {
        tmp = AStringPrintf(
                "'%c%c%c%c'",
                (char)(mWhat >> 24),
                (char)((mWhat >> 16) & 0xff),
                (char)((mWhat >> 8) & 0xff),
                (char)(mWhat & 0xff));
    } else {
        tmp = AStringPrintf("0x%08x", mWhat);
    }
    s.append(tmp);

    if (mTarget != 0) {
        tmp = AStringPrintf(", target = %d", mTarget);
        s.append(tmp);
    }
    s.append(") = {\n");

    for (const Item &item : mItems) {
        const char *name = item.mName.c_str();
        switch (item.mType) {
            case kTypeInt32:
                tmp = AStringPrintf(
                        "int32_t %s = %d", name, item.u.int32Value);
                break;
            case kTypeInt64:
                tmp = AStringPrintf(
                        "int64_t %s = %" PRId64, name, item.u.int64Value);
                break;
            case kTypeSize:
                tmp = AStringPrintf(
                        "size_t %s = %zu", name, item.u.sizeValue);
                break;
            case kTypeFloat:
                tmp = AStringPrintf(
                        "float %s = %f", name, item.u.floatValue);
                break;
            case kTypeDouble:
                tmp = AStringPrintf(
                        "double %s = %f", name, item.u.doubleValue);
                break;
            case kTypePointer:
                tmp = AStringPrintf(
                        "void *%s = %p", name, item.u.ptrValue);
                break;
            case kTypeString:
                tmp = AStringPrintf(
                        "string %s = \"%s\"", name, item.mStringValue.c_str());
                break;
            case kTypeObject:
                tmp = AStringPrintf(
                        "RefBase *%s = %p", name, item.mRefValue.get());
                break;
            case kTypeBuffer:
            {
                sp<ABuffer> buffer = static_cast<ABuffer *>(item.mRefValue.get());

                if (buffer != NULL && buffer->data() != NULL && buffer->size() <= 64) {
                    tmp = AStringPrintf("Buffer %s = {\n", name);
                    for (size_t i = 0; i < buffer->size(); ++i) {
                        if (i % 16 == 0) {
                            appendIndent(&tmp, indent + 4);
                        }
                        tmp.append(AStringPrintf("%02x ", buffer->data()[i]));
                        if (i % 16 == 15 || i + 1 == buffer->size()) {
                            tmp.append("\n");
                        }
                    }
                    appendIndent(&tmp, indent + 2);
                    tmp.append("}");
                } else {
                    tmp = AStringPrintf(
                            "Buffer *%s = %p", name, buffer.get());
                }
                break;
            }
            case kTypeMessage:
                if (item.mRefValue == NULL) {
                    tmp = AStringPrintf("AMessage %s = NULL", name);
                } else {
                    tmp = AStringPrintf(
                            "AMessage %s = %s",
                            name,
                            static_cast<AMessage *>(
                                item.mRefValue.get())->debugString(
                                    indent + strlen(name) + 14).c_str());
                }
                break;
            case kTypeRect:
                tmp = AStringPrintf(
                        "Rect %s(%d, %d, %d, %d)",
                        name,
                        item.u.rectValue.mLeft,
                        item.u.rectValue.mTop,
                        item.u.rectValue.mRight,
                        item.u.rectValue.mBottom);
                break;
            default:
                TRESPASS();
        }

        appendIndent(&s, indent);
        s.append("  ");
        s.append(tmp);
        s.append("\n");
    }

    appendIndent(&s, indent);
    s.append("}");

    return s;
}

size_t AMessage::countEntries() const {
    return mItems.size();
}

const char *AMessage::getEntryNameAt(size_t index, Type *type) const {
    if (index >= mItems.size()) {
        *type = kTypeInt32;

        return NULL;
    }

    *type = mItems[index].mType;

    return mItems[index].mName.c_str();
}

status_t AMessage::setEntryNameAt(size_t index, const char *name) {
    if (index >= mItems.size()) {
        return BAD_INDEX;
    }
    if (name == NULL) {
        return BAD_VALUE;
    }
    if (!strcmp(name, mItems[index].mName.c_str())) {
        return OK;
    }
    if (findItemIndex(name) >= 0) {
        return ALREADY_EXISTS;
    }
    mItems[index].mName.setTo(name);
    return OK;
}

status_t AMessage::removeEntryAt(size_t index) {
    if (index >= mItems.size()) {
        return BAD_INDEX;
    }
    mItems.erase(mItems.begin() + index);
    return OK;
}

void AMessage::extend(const sp<AMessage> &other) {
    if (other == NULL || other.get() == this) {
        return;
    }
    for (const Item &from : other->mItems) {
        Item *to = allocateItem(from.mName.c_str());
        *to = from;
    }
}

}  // namespace android
