/* TqKernel: Lua 5.1 universes, transit queues, direct objects and a remote debugger.
 * Includes every public header. */
#ifndef TQKERNEL_TQKERNEL_H
#define TQKERNEL_TQKERNEL_H

#include <tqkernel/lua_api.h>
#include <tqkernel/exceptions.h>
#include <tqkernel/threads.h>
#include <tqkernel/universe.h>
#include <tqkernel/toolkit.h>
#include <tqkernel/hooks.h>
#include <tqkernel/userdata.h>
#include <tqkernel/direct_objects.h>
#include <tqkernel/transit.h>

#endif
