// Marks what the platform library offers to programs; everything else in it is hidden.
#ifndef VEX_EXPORT_H
#define VEX_EXPORT_H

#define VEX_PUBLIC __attribute__((visibility("default")))

#endif
