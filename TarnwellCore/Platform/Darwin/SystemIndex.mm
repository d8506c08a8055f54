#include "TarnwellCore/Platform/SystemIndex.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>

#include <algorithm>

namespace tarnwell {

namespace {

using Kind = SystemIndexFailure::Kind;

std::unexpected<SystemIndexFailure> failure(Kind kind, const char* message) {
    return std::unexpected(SystemIndexFailure{kind, message});
}

std::vector<std::string> pathsOf(MDQueryRef query, std::size_t limit) {
    std::vector<std::string> paths;
    MDQueryDisableUpdates(query);
    const std::size_t count = std::min(static_cast<std::size_t>(MDQueryGetResultCount(query)), limit);
    for (std::size_t index = 0; index < count; ++index) {
        @autoreleasepool {
            auto* item = static_cast<MDItemRef>(
                const_cast<void*>(MDQueryGetResultAtIndex(query, static_cast<CFIndex>(index))));
            NSString* const path = CFBridgingRelease(MDItemCopyAttribute(item, kMDItemPath));
            if (path != nil)
                paths.emplace_back(path.fileSystemRepresentation);
        }
    }
    return paths;
}

} // namespace

std::expected<std::vector<std::string>, SystemIndexFailure>
askSystemIndex(const SystemIndexQuery& query, const std::function<bool()>& isCancelled) {
    @autoreleasepool {
        NSString* const expression = stringFromUTF8(query.expression);
        NSString* const folder = stringFromUTF8(query.folder);
        if (expression == nil || folder == nil)
            return failure(Kind::invalid, "The question to the index is not text.");
        const id owned = CFBridgingRelease(
            MDQueryCreate(kCFAllocatorDefault, (__bridge CFStringRef)expression, nullptr, nullptr));
        if (owned == nil)
            return failure(Kind::invalid, "The index does not understand the question.");
        auto* const question = (__bridge MDQueryRef)owned;
        MDQuerySetSearchScope(question, (__bridge CFArrayRef) @[ folder ], 0);
        MDQuerySetMaxCount(question, static_cast<CFIndex>(query.limit));
        // The index reports to the run loop of the thread that asks.
        if (!MDQueryExecute(question, 0))
            return failure(Kind::failed, "The index does not answer.");
        const CFAbsoluteTime deadline = CFAbsoluteTimeGetCurrent() + query.timeLimit;
        while (!MDQueryIsGatheringComplete(question) && CFAbsoluteTimeGetCurrent() < deadline) {
            if (isCancelled()) {
                MDQueryStop(question);
                return failure(Kind::cancelled, "The search was cancelled.");
            }
            if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true) == kCFRunLoopRunFinished)
                [NSThread sleepForTimeInterval:0.02];
        }
        MDQueryStop(question);
        return pathsOf(question, query.limit);
    }
}

} // namespace tarnwell
