#pragma once

// As much of the Darwin kernel's header as its side of the platform uses.

#include <cstdint>

struct attrlist {
    unsigned short bitmapcount;
    std::uint16_t reserved;
    std::uint32_t commonattr;
    std::uint32_t volattr;
    std::uint32_t dirattr;
    std::uint32_t fileattr;
    std::uint32_t forkattr;
};

#define ATTR_BIT_MAP_COUNT 5
#define FSOPT_ATTR_CMN_EXTENDED 0x00000020

#define ATTR_CMN_NAME 0x00000001U
#define ATTR_CMN_DEVID 0x00000002U
#define ATTR_CMN_OBJTYPE 0x00000008U
#define ATTR_CMN_MODTIME 0x00000400U
#define ATTR_CMN_ACCTIME 0x00001000U
#define ATTR_CMN_FLAGS 0x00040000U
#define ATTR_CMN_FILEID 0x02000000U
#define ATTR_CMN_ERROR 0x20000000U
#define ATTR_CMN_RETURNED_ATTRS 0x80000000U

#define ATTR_DIR_MOUNTSTATUS 0x00000004U
#define DIR_MNTSTATUS_MNTPOINT 0x00000001U
#define DIR_MNTSTATUS_TRIGGER 0x00000002U

#define ATTR_FILE_LINKCOUNT 0x00000001U
#define ATTR_FILE_TOTALSIZE 0x00000002U
#define ATTR_FILE_ALLOCSIZE 0x00000004U

#define ATTR_CMNEXT_PRIVATESIZE 0x00000008U
#define ATTR_CMNEXT_CLONEID 0x00000100U
#define ATTR_CMNEXT_EXT_FLAGS 0x00000200U
#define ATTR_CMNEXT_CLONE_REFCNT 0x00001000U
