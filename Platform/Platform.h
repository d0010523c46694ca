#pragma once

/// Everything that the library offers.

#include <Platform/askpass/Client.h>
#include <Platform/askpass/Server.h>
#include <Platform/async/AsyncChannel.h>
#include <Platform/async/AsyncCond.h>
#include <Platform/async/AsyncLock.h>
#include <Platform/async/AsyncQueue.h>
#include <Platform/async/ChannelError.h>
#include <Platform/base/CancellationError.h>
#include <Platform/base/Data.h>
#include <Platform/base/Errno.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/Log.h>
#include <Platform/base/OrderedDictionary.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/base/TemporaryDirectory.h>
#include <Platform/base/Text.h>
#include <Platform/base/UUID.h>
#include <Platform/command/ByteScanner.h>
#include <Platform/command/Sudo.h>
#include <Platform/command/Which.h>
#include <Platform/editor/Client.h>
#include <Platform/editor/Server.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/CheckedContinuation.h>
#include <Platform/runtime/CooperativePool.h>
#include <Platform/runtime/Executor.h>
#include <Platform/runtime/RunMain.h>
#include <Platform/runtime/SerialQueue.h>
#include <Platform/runtime/Task.h>
#include <Platform/runtime/TaskGroup.h>
#include <Platform/runtime/TaskHandle.h>
#include <Platform/runtime/TaskPriority.h>
#include <Platform/transport/FIFO.h>
#include <Platform/transport/MessageBus.h>
