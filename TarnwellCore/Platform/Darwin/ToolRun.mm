#include "TarnwellCore/Platform/ToolRun.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"
#include "TarnwellCore/Platform/UnfairLock.hpp"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

constexpr std::size_t readSize = 65'536;
/// As much as a pipe holds of what nobody has read yet.
constexpr std::size_t mostPipe = 65'536;

dispatch_queue_t _Nonnull sharedQueue() {
    return dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0);
}

dispatch_time_t timeAfter(double seconds) {
    return dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(seconds * NSEC_PER_SEC));
}

/// What comes out of a tool's two pipes, read while it runs. The pipes are closed as soon as nobody reads
/// them any more: a tool that is left to itself keeps its task, and with it the pipes, for as long as it
/// runs.
class ToolOutput : public std::enable_shared_from_this<ToolOutput> {
public:
    /// Before the launch, lest a tool that ends at once be missed.
    void start(std::size_t index, NSFileHandle* _Nonnull end) {
        const int descriptor = end.fileDescriptor;
        ::fcntl(descriptor, F_SETFL, O_NONBLOCK);
        const auto self = shared_from_this();
        const dispatch_group_t openPipes = openPipes_;
        const dispatch_source_t source =
            dispatch_source_create(DISPATCH_SOURCE_TYPE_READ, static_cast<uintptr_t>(descriptor), 0, queue_);
        sources_[index] = source;
        dispatch_group_enter(openPipes);
        // The source lets go of both blocks, and of what they hold, once it is cancelled.
        dispatch_source_set_event_handler(source, ^{
          self->read(index, descriptor);
        });
        dispatch_source_set_cancel_handler(source, ^{
          [end closeAndReturnError:nil];
          dispatch_group_leave(openPipes);
        });
        dispatch_resume(source);
    }

    /// A source that is not being read has to be read again before it can be let go of.
    void stop() {
        const auto self = shared_from_this();
        dispatch_async(queue_, ^{
          for (std::size_t index = 0; index < self->sources_.size(); ++index) {
              dispatch_source_cancel(self->sources_[index]);
              self->resume(index);
          }
          self->heldUp_ = nil;
        });
    }

    /// Calls `body` once, from a queue, when a pipe that has given `mostToolOutput` bytes holds the tool up.
    void whenHeldUp(dispatch_block_t _Nonnull body) {
        const auto self = shared_from_this();
        dispatch_async(queue_, ^{
          self->heldUp_ = body;
          if (self->isHeld_[0] || self->isHeld_[1])
              self->tellHeldUp();
        });
    }

    /// Drops what has been read and what will be.
    void discard() {
        const auto self = shared_from_this();
        dispatch_async(queue_, ^{
          self->keepsBytes_ = false;
          self->bytes_ = {};
          for (std::size_t index = 0; index < self->sources_.size(); ++index)
              self->resume(index);
        });
    }

    /// After the tool's end: waits for what the pipes still hold, but not for ever for those whom the tool
    /// has left in the background, then stops.
    ToolRun runWithStatus(std::int32_t status) {
        const auto self = shared_from_this();
        dispatch_async(queue_, ^{
          // What a pipe holds when its tool has ended is the tool's answer still.
          self->most_ = mostToolOutput + mostPipe;
          for (std::size_t index = 0; index < self->sources_.size(); ++index)
              self->resume(index);
        });
        dispatch_group_wait(
            openPipes_,
            dispatch_time(DISPATCH_TIME_NOW, std::chrono::nanoseconds(toolOutputGracePeriod).count()));
        stop();
        ToolRun run{.status = status};
        ToolRun* const pointer = &run;
        dispatch_sync(queue_, ^{
          pointer->standardOutput = std::move(bytes_[0]);
          pointer->standardError = std::move(bytes_[1]);
          keepsBytes_ = false;
          bytes_ = {};
        });
        return run;
    }

private:
    void read(std::size_t index, int descriptor) {
        const std::size_t wanted =
            keepsBytes_ ? std::min(buffer_.size(), most_ - bytes_[index].size()) : buffer_.size();
        const ssize_t count = ::read(descriptor, buffer_.data(), wanted);
        if (count > 0) {
            if (keepsBytes_)
                bytes_[index].append(buffer_.data(), static_cast<std::size_t>(count));
            if (bytes_[index].size() >= most_)
                hold(index);
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            dispatch_source_cancel(sources_[index]);
        }
    }

    // On `queue_`.
    void hold(std::size_t index) {
        isHeld_[index] = true;
        dispatch_suspend(sources_[index]);
        tellHeldUp();
    }
    void resume(std::size_t index) {
        if (std::exchange(isHeld_[index], false))
            dispatch_resume(sources_[index]);
    }
    void tellHeldUp() {
        if (heldUp_ != nil)
            dispatch_async(sharedQueue(), static_cast<dispatch_block_t _Nonnull>(heldUp_));
        heldUp_ = nil;
    }

    const dispatch_queue_t _Nonnull queue_ =
        dispatch_queue_create_with_target("com.tarnwell.tool-output", DISPATCH_QUEUE_SERIAL, sharedQueue());
    /// Entered once for each pipe that is being read.
    const dispatch_group_t _Nonnull openPipes_ = dispatch_group_create();
    std::array<dispatch_source_t _Nonnull, 2> sources_{}; // set before the launch
    // The rest is touched on `queue_` alone.
    std::array<std::string, 2> bytes_;
    bool keepsBytes_ = true;
    std::size_t most_ = mostToolOutput;
    std::array<bool, 2> isHeld_{}; // the source is suspended
    dispatch_block_t _Nullable heldUp_ = nil;
    std::vector<char> buffer_ = std::vector<char>(readSize);
};

/// A Boolean that the termination handler and the timers share.
class SharedFlag {
public:
    bool isSet() {
        return lock_.withLock([this] { return isSet_; });
    }
    /// Returns whether it was set before.
    bool testAndSet() {
        return lock_.withLock([this] { return std::exchange(isSet_, true); });
    }

private:
    UnfairLock lock_;
    bool isSet_ = false; // guarded by lock_
};

/// One run that somebody waits for. Whoever sets `resumed` answers, nobody else ever does.
struct Waiting {
    SharedFlag resumed;
    SharedFlag timedOut;
    std::promise<ToolRun> answer;
    /// Keeps the task while its process runs, whoever still waits. The termination handler lets go of it.
    NSTask* _Nullable task = nil;
};

/// A task that is ready to be launched, its output being read; null when the system gives no pipes or when
/// an argument is no text.
NSTask* _Nullable makeTask(const std::string& executable, const std::vector<std::string>& arguments,
                           ToolOutput& output) {
    NSMutableArray<NSString*>* texts = [NSMutableArray arrayWithCapacity:arguments.size()];
    for (const std::string& argument : arguments) {
        NSString* text = stringFromUTF8(argument);
        if (text == nil)
            return nil;
        [texts addObject:text];
    }
    NSPipe* standardOutput = [NSPipe pipe];
    NSPipe* standardError = [NSPipe pipe];
    for (NSPipe* pipe : {standardOutput, standardError}) {
        if (pipe == nil || pipe.fileHandleForReading.fileDescriptor < 0)
            return nil;
        // The task hands on nothing but the three streams; this is for what the rest of the process starts.
        for (NSFileHandle* end : {pipe.fileHandleForReading, pipe.fileHandleForWriting})
            ::fcntl(end.fileDescriptor, F_SETFD, FD_CLOEXEC);
    }

    NSTask* task = [[NSTask alloc] init];
    task.executableURL = fileURL(executable, false);
    task.arguments = texts;
    task.standardInput = NSFileHandle.fileHandleWithNullDevice;
    task.standardOutput = standardOutput;
    task.standardError = standardError;
    output.start(0, standardOutput.fileHandleForReading);
    output.start(1, standardError.fileHandleForReading);
    return task;
}

/// Asks the task to end when its time is up, and answers when its grace period is. Once this is gone nothing
/// is kept for it, however long the limits are: a timer that is cancelled lets go of its handler.
class TimeLimit {
public:
    TimeLimit(NSTask* _Nonnull task, std::optional<double> gracePeriod,
              const std::shared_ptr<Waiting>& waitingRun, const std::shared_ptr<ToolOutput>& runOutput)
        : timer_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, sharedQueue())) {
        const dispatch_source_t timer = timer_;
        const auto waiting = waitingRun;
        const auto output = runOutput;
        dispatch_source_set_event_handler(timer, ^{
          @autoreleasepool {
              if (waiting->timedOut.isSet()) { // the second time
                  if (!waiting->resumed.testAndSet())
                      waiting->answer.set_value(ToolRun{.hasTimedOut = true});
              } else if (!waiting->resumed.isSet()) {
                  waiting->timedOut.testAndSet();
                  [task terminate];
                  // A tool that is held up may want to write what it has before it ends.
                  output->discard();
                  if (gracePeriod)
                      fireOnce(timer, *gracePeriod);
              }
          }
        });
        dispatch_source_set_timer(timer, DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, 0);
        dispatch_resume(timer);
    }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit() { dispatch_source_cancel(timer_); }

    /// A block that starts the limit, at once or later, also when this is gone by then.
    dispatch_block_t _Nonnull starter(double seconds) const {
        const dispatch_source_t timer = timer_;
        return ^{
          fireOnce(timer, seconds);
        };
    }

private:
    static void fireOnce(dispatch_source_t _Nonnull timer, double seconds) {
        dispatch_source_set_timer(timer, timeAfter(seconds), DISPATCH_TIME_FOREVER, 0);
    }

    const dispatch_source_t _Nonnull timer_;
};

} // namespace

bool isExecutableFile(const std::string& path) {
    @autoreleasepool {
        NSFileManager* files = [[NSFileManager alloc] init];
        NSString* text = [files stringWithFileSystemRepresentation:path.data() length:path.size()];
        return text != nil && [files isExecutableFileAtPath:text];
    }
}

/// The end is told by the task's handler: `waitUntilExit` would run the caller's run loop meanwhile, which on
/// the main thread handles whatever else has happened. Who calls the handler is not said anywhere, so it
/// waits for nothing.
std::optional<ToolRun> runTool(const std::string& executable, const std::vector<std::string>& arguments,
                               const ToolTimeLimits& limits) {
    @autoreleasepool {
        const auto output = std::make_shared<ToolOutput>();
        NSTask* task = makeTask(executable, arguments, *output);
        if (task == nil)
            return std::nullopt;
        const auto waiting = std::make_shared<Waiting>();
        std::future<ToolRun> answer = waiting->answer.get_future();
        waiting->task = task;
        task.terminationHandler = ^(NSTask* _Nonnull ended) {
          @autoreleasepool {
              const bool hasTimedOut = waiting->timedOut.isSet();
              if (hasTimedOut)
                  output->stop();
              if (!waiting->resumed.testAndSet())
                  waiting->answer.set_value(
                      ToolRun{.hasTimedOut = hasTimedOut, .status = ended.terminationStatus});
              waiting->task = nil;
          }
        };
        if (![task launchAndReturnError:nil]) {
            task.terminationHandler = nil;
            waiting->task = nil;
            output->stop();
            return std::nullopt;
        }
        const TimeLimit timeLimit(task, limits.gracePeriod, waiting, output);
        if (limits.timeout)
            timeLimit.starter (*limits.timeout)();
        else if (limits.heldUp)
            output->whenHeldUp(timeLimit.starter(*limits.heldUp));
        ToolRun run = answer.get();
        // The rest of the output is waited for here, not where the handler runs.
        if (!run.hasTimedOut)
            return output->runWithStatus(run.status);
        return run;
    }
}

} // namespace tarnwell
