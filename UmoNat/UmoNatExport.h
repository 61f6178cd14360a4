#pragma once

// Marks the plug-in's public interface: factories and the classes an agent uses.
// Everything else in the library has hidden visibility.
#if defined(UMONAT_BUILDING)
#define UMONAT_EXPORT __attribute__((visibility("default")))
#else
#define UMONAT_EXPORT
#endif
