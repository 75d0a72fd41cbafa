// Reference-counted MetaDataBase, the form in which formats travel between
// media sources.

#ifndef META_DATA_H_
#define META_DATA_H_

#include <media/stagefright/MetaDataBase.h>
#include <utils/RefBase.h>

namespace android {

class MetaData final : public MetaDataBase, public RefBase {
public:
    MetaData();
    MetaData(const MetaData& from);
    MetaData(const MetaDataBase& from);

protected:
    virtual ~MetaData();
};

}  // namespace android

#endif  // META_DATA_H_
