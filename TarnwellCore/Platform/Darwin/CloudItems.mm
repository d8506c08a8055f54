#include "TarnwellCore/Platform/CloudItems.hpp"

#import <FileProvider/FileProvider.h>
#import <Foundation/Foundation.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

using Completion = std::function<void(const CloudEvictionReply&)>;
using Kind = CloudEvictionReply::Kind;

/// A fresh URL: it carries no resource values from an earlier look.
NSURL* _Nonnull urlOf(const std::filesystem::path& item) {
    return [NSURL fileURLWithFileSystemRepresentation:item.c_str() isDirectory:NO relativeToURL:nil];
}

std::string textOf(NSError* _Nullable error) {
    const char* text = error.localizedDescription.UTF8String;
    return text != nullptr ? text : "The operation could not be completed.";
}

std::optional<UbiquitousDownloadingStatus> downloadingStatusOf(NSString* _Nullable value) {
    if ([value isEqualToString:NSURLUbiquitousItemDownloadingStatusCurrent])
        return UbiquitousDownloadingStatus::current;
    if ([value isEqualToString:NSURLUbiquitousItemDownloadingStatusDownloaded])
        return UbiquitousDownloadingStatus::downloaded;
    if ([value isEqualToString:NSURLUbiquitousItemDownloadingStatusNotDownloaded])
        return UbiquitousDownloadingStatus::notDownloaded;
    return std::nullopt;
}

void evictItem(NSFileProviderItemIdentifier _Nonnull item, NSFileProviderManager* _Nonnull manager,
               const Completion& completion) {
    const Completion complete = completion;
    [manager evictItemWithIdentifier:item
                   completionHandler:^(NSError* _Nullable error) {
                     if (error == nil)
                         complete({Kind::evicted, {}});
                     else
                         complete({Kind::failed, textOf(error)});
                   }];
}

void evictItemInDomain(NSFileProviderItemIdentifier _Nonnull item,
                       NSFileProviderDomainIdentifier _Nullable domainIdentifier,
                       const Completion& completion) {
    const Completion complete = completion;
    if (domainIdentifier == nil) {
        complete({Kind::unavailable, {}});
        return;
    }
    [NSFileProviderManager
        getDomainsWithCompletionHandler:^(NSArray<NSFileProviderDomain*>* domains, NSError* _Nullable) {
          for (NSFileProviderDomain* domain in domains) {
              if (![domain.identifier isEqualToString:domainIdentifier])
                  continue;
              if (NSFileProviderManager* manager = [NSFileProviderManager managerForDomain:domain]) {
                  evictItem(item, manager, complete);
                  return;
              }
          }
          complete({Kind::unavailable, {}});
        }];
}

} // namespace

std::expected<CloudItemStatus, std::string> readCloudItemStatus(const std::filesystem::path& item) {
    // The dataless mark comes from the file system: it holds for every service, also while none is running.
    struct stat status;
    if (::lstat(item.c_str(), &status) != 0)
        return std::unexpected(std::generic_category().message(errno));
    @autoreleasepool {
        NSError* error = nil;
        NSDictionary<NSURLResourceKey, id>* values = [urlOf(item) resourceValuesForKeys:@[
            NSURLIsDirectoryKey, NSURLIsRegularFileKey, NSURLIsUbiquitousItemKey,
            NSURLUbiquitousItemDownloadingStatusKey, NSURLTotalFileAllocatedSizeKey
        ]
                                                                                  error:&error];
        if (values == nil)
            return std::unexpected(textOf(error));
        CloudItemStatus result;
        result.isDirectory = [values[NSURLIsDirectoryKey] boolValue];
        result.isRegularFile = [values[NSURLIsRegularFileKey] boolValue];
        result.isDataless = (status.st_flags & SF_DATALESS) != 0;
        result.isUbiquitous = [values[NSURLIsUbiquitousItemKey] boolValue];
        result.downloadingStatus = downloadingStatusOf(values[NSURLUbiquitousItemDownloadingStatusKey]);
        result.allocatedSize = [values[NSURLTotalFileAllocatedSizeKey] longLongValue];
        return result;
    }
}

CloudEvictionReply evictFromUbiquitousStorage(const std::filesystem::path& item) {
    @autoreleasepool {
        NSError* error = nil;
        if ([[[NSFileManager alloc] init] evictUbiquitousItemAtURL:urlOf(item) error:&error])
            return {Kind::evicted, {}};
        return {Kind::failed, textOf(error)};
    }
}

void evictFromFileProvider(const std::filesystem::path& item, Completion completion) {
    @autoreleasepool {
        // The framework is linked weakly.
        if ([NSFileProviderManager class] == nil) {
            completion({Kind::unavailable, {}});
            return;
        }
        const Completion complete = std::move(completion);
        [NSFileProviderManager
            getIdentifierForUserVisibleFileAtURL:urlOf(item)
                               completionHandler:^(NSFileProviderItemIdentifier _Nullable identifier,
                                                   NSFileProviderDomainIdentifier _Nullable domain,
                                                   NSError* _Nullable) {
                                 if (identifier == nil)
                                     complete({Kind::notManaged, {}});
                                 else
                                     evictItemInDomain(identifier, domain, complete);
                               }];
    }
}

} // namespace tarnwell
