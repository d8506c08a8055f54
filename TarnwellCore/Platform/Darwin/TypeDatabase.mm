#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

namespace tarnwell {

std::vector<TypeConformance> typeConformances(std::string_view fileExtension) {
    @autoreleasepool {
        NSString* const text = stringFromUTF8(fileExtension);
        // Nil for bytes that are not UTF-8, which no type declares.
        if (text.length == 0)
            return {};
        UTType* const type = [UTType typeWithFilenameExtension:text conformingToType:UTTypeData];
        if (type == nil)
            return {};

        const struct {
            __unsafe_unretained UTType* supertype; // a constant of the framework
            TypeConformance::Bit bit;
        } tests[] = {
            {UTTypeMovie, TypeConformance::movie},
            {UTTypeVideo, TypeConformance::video},
            {UTTypeAudio, TypeConformance::audio},
            {UTTypeImage, TypeConformance::image},
            {UTTypeFont, TypeConformance::font},
            {UTTypeDiskImage, TypeConformance::diskImage},
            {UTTypeArchive, TypeConformance::archive},
            {UTTypeSourceCode, TypeConformance::sourceCode},
            {UTTypeScript, TypeConformance::script},
            {UTTypeApplication, TypeConformance::application},
            {UTTypeDatabase, TypeConformance::database},
            {UTTypeSpreadsheet, TypeConformance::spreadsheet},
            {UTTypePresentation, TypeConformance::presentation},
            {UTTypeText, TypeConformance::text},
            {UTTypePDF, TypeConformance::pdf},
        };
        TypeConformance conformance;
        for (const auto& test : tests)
            if ([type conformsToType:test.supertype])
                conformance.insert(test.bit);
        return {conformance};
    }
}

bool mayHaveType(std::string_view fileExtension) {
    return !fileExtension.empty(); // the system has no list of its extensions
}

} // namespace tarnwell
