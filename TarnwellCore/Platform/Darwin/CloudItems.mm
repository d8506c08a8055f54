#include "TarnwellCore/Platform/CloudItems.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

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
                         complete({Kind::failed, descriptionOf(error)});
                   }];
}

/// Both identifiers are there.
void evictItemInDomain(NSFileProviderItemIdentifier item, NSFileProviderDomainIdentifier domainIdentifier,
                       const Completion& completion) {
    const Completion complete = completion;
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
        NSDictionary<NSURLResourceKey, id>* values = [fileURL(item, false) resourceValuesForKeys:@[
            NSURLIsDirectoryKey, NSURLIsRegularFileKey, NSURLIsUbiquitousItemKey,
            NSURLUbiquitousItemDownloadingStatusKey, NSURLTotalFileAllocatedSizeKey
        ]
                                                                                           error:&error];
        if (values == nil)
            return std::unexpected(descriptionOf(error));
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
        if ([[[NSFileManager alloc] init] evictUbiquitousItemAtURL:fileURL(item, false) error:&error])
            return {Kind::evicted, {}};
        return {Kind::failed, descriptionOf(error)};
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
            getIdentifierForUserVisibleFileAtURL:fileURL(item, false)
                               completionHandler:^(NSFileProviderItemIdentifier identifier,
                                                   NSFileProviderDomainIdentifier domain, NSError*) {
                                 if (identifier == nil)
                                     complete({Kind::notManaged, {}});
                                 else if (domain == nil)
                                     complete({Kind::unavailable, {}});
                                 else
                                     evictItemInDomain(identifier, domain, complete);
                               }];
    }
}

} // namespace tarnwell
