/* A stand-in for libQuorlBridge.so that lacks one export, so the simulator's load check can be seen to
 * name what is missing. The stubs are never called: the simulator stops before running anything. */
#include "bridge/export_names.h"

#define Map_SetValue Map_SetValue_left_out
#define QUORL_STUB(name) \
  void name(void);       \
  void name(void) {}
QUORL_FOR_EACH_EXPORT(QUORL_STUB)
