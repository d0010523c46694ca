/* Stand-in for the system's header, which the cross compiler lacks: only what is used of it. */
#pragma once

enum vtype { VNON, VREG, VDIR };
