// The thread pool of this process. Without it nothing comes in: no transaction and no death.
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Starts one thread; more follow on demand. Again: nothing happens.
void ABinderProcess_startThreadPool(void);
// How many more threads may follow (15 unless set). False if the pool is started and would have to shrink.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
bool ABinderProcess_isThreadPoolStarted(void);
// Makes the caller a thread of the pool; does not return.
void ABinderProcess_joinThreadPool(void);

__END_DECLS
