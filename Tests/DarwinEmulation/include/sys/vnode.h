#pragma once

// As much of the Darwin kernel's header as its side of the platform uses.

enum vtype { VNON, VREG, VDIR, VBLK, VCHR, VLNK, VSOCK, VFIFO, VBAD };
