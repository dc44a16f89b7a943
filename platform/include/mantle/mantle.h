// Everything of the foundation framework.
#ifndef MANTLE_MANTLE_H
#define MANTLE_MANTLE_H

#include "mantle/CMNAtomic.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNRandom.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNSingleton.h"
#include "mantle/CMNSipHash.h"
#include "mantle/CMNStopFlag.h"
#include "mantle/CMNThread.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/CMNThreadUser.h"
#include "mantle/CMNTimeValue.h"
#include "mantle/CMNTimerQueueOrderedList.h"
#include "mantle/CMNTimerWrapperID.h"
#include "mantle/CMNWaiter.h"
#include "mantle/IMNEvent.h"
#include "mantle/IMNObserver.h"
#include "mantle/IMNTimerQueue.h"
#include "mantle/IMNTraceManager.h"
#include "mantle/MNDefines.h"
#include "mantle/MNThreadSafety.h"

#endif
