/*
 * Host stand-in for the platform's media/DataSource.h (API 29).
 */

#ifndef DATA_SOURCE_H_
#define DATA_SOURCE_H_

#include <sys/types.h>
#include <stdint.h>

#include <media/DataSourceBase.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class DataSource : public DataSourceBase, public virtual RefBase {
public:
    DataSource() {}

    virtual String8 toString() {
        return String8("<unspecified>");
    }

    virtual String8 getMIMEType() const {
        return String8("application/octet-stream");
    }

protected:
    virtual ~DataSource() {}

private:
    DataSource(const DataSource &);
    DataSource &operator=(const DataSource &);
};

}  // namespace android

#endif  // DATA_SOURCE_H_
