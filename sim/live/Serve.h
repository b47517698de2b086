// What the services of the endurance run and of the benchmarks have in common: an implementation that leaves most
// methods to the defaults is put where the library looks for it.
#pragma once

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <string>

#include "aidl/IOrvixService.h"

namespace sim {

// False if the name cannot be had. The service must live as long as the process. The thread pool is the caller's to
// start.
inline bool serve(aidl::vendor::nuvel::data::orvixservice::IOrvixService& service) {
    using aidl::vendor::nuvel::data::orvixservice::IOrvixService;
    AIBinder* const binder = AIBinder_new(IOrvixService::binderClass, static_cast<ndk::ICInterface*>(&service));
    AIBinder_markVintfStability(binder);
    const std::string name = std::string(IOrvixService::descriptor) + "/default";
    return AServiceManager_addService(binder, name.c_str()) == EX_NONE;
}

}  // namespace sim
