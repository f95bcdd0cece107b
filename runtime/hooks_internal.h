// The host hooks as the rest of the library reads them.
#ifndef TQ_RUNTIME_HOOKS_INTERNAL_H
#define TQ_RUNTIME_HOOKS_INTERNAL_H

namespace tq {

// The owner window of the debugger's activation dialog, or NULL.
void *mainWindow();

}  // namespace tq

#endif
