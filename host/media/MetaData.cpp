#define LOG_TAG "MetaData"

#include <media/stagefright/MetaData.h>

namespace android {

MetaData::MetaData() {}

MetaData::MetaData(const MetaData& from) : MetaDataBase(from), RefBase() {}

MetaData::MetaData(const MetaDataBase& from) : MetaDataBase(from) {}

MetaData::~MetaData() {}

}  // namespace android
