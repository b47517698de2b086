#include "aidl/IRequest.h"

namespace aidl::vendor::nuvel::data::orvixservice {

const std::string& IRequest::hash = *new std::string("7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c");
AIBinder_Class* const IRequest::binderClass = ndk::ICInterface::defineClass(IRequest::descriptor, onTransact<IRequest>);

}  // namespace aidl::vendor::nuvel::data::orvixservice
