/*
 * Host stand-in for the platform's binder/IInterface.h (API 29).  Without a
 * driver there are no proxies: asInterface() finds the local implementation
 * of a binder or returns null.
 */
#pragma once

#include <binder/Binder.h>

#include <memory>

namespace android {

class IInterface : public virtual RefBase {
public:
    IInterface();
    static sp<IBinder> asBinder(const IInterface*);
    static sp<IBinder> asBinder(const sp<IInterface>&);

protected:
    virtual ~IInterface();
    virtual IBinder* onAsBinder() = 0;
};

template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& obj) {
    return INTERFACE::asInterface(obj);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override;
    const String16& getInterfaceDescriptor() const override;

protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

#define DECLARE_META_INTERFACE(INTERFACE)                                 \
public:                                                                   \
    static const ::android::String16 descriptor;                          \
    static ::android::sp<I##INTERFACE> asInterface(                       \
            const ::android::sp<::android::IBinder>& obj);                \
    virtual const ::android::String16& getInterfaceDescriptor() const;    \
    I##INTERFACE();                                                       \
    virtual ~I##INTERFACE();

// The host variant has no Bp##INTERFACE to fall back on: a binder that does
// not carry the interface locally yields null.
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                         \
    const ::android::String16 I##INTERFACE::descriptor(NAME);             \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const { \
        return I##INTERFACE::descriptor;                                  \
    }                                                                     \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                \
            const ::android::sp<::android::IBinder>& obj) {               \
        ::android::sp<I##INTERFACE> intr;                                 \
        if (obj != nullptr) {                                             \
            intr = static_cast<I##INTERFACE*>(                            \
                    obj->queryLocalInterface(I##INTERFACE::descriptor).get()); \
        }                                                                 \
        return intr;                                                      \
    }                                                                     \
    I##INTERFACE::I##INTERFACE() {}                                       \
    I##INTERFACE::~I##INTERFACE() {}

template <typename INTERFACE>
inline sp<IInterface> BnInterface<INTERFACE>::queryLocalInterface(const String16& descriptor) {
    if (descriptor == INTERFACE::descriptor) return this;
    return nullptr;
}

template <typename INTERFACE>
inline const String16& BnInterface<INTERFACE>::getInterfaceDescriptor() const {
    return INTERFACE::getInterfaceDescriptor();
}

template <typename INTERFACE>
IBinder* BnInterface<INTERFACE>::onAsBinder() {
    return this;
}

}  // namespace android
