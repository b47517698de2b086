#include "aidl/IOrvixService.h"

namespace aidl::vendor::nuvel::data::orvixservice {

const std::string& IOrvixService::hash = *new std::string("7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c");
AIBinder_Class* const IOrvixService::binderClass =
    ndk::ICInterface::defineClass(IOrvixService::descriptor, onTransact<IOrvixService>);

}  // namespace aidl::vendor::nuvel::data::orvixservice
