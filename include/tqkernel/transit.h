/* Values in transit between Lua states.
 *
 * A value leaves its state as a packed value: a position-independent run of bytes, a
 * multiple of 8 long, that owns no Lua object and can be handed to any thread. The
 * receiving state rebuilds fresh Lua values from it. Strings, numbers, booleans and plain
 * tables are copied; light userdata cross as the bare pointer; direct objects cross by
 * their class's copy operation; functions, threads, tables with metatables and foreign
 * userdata are refused unless a transit extension claims them.
 *
 * Layout of a packed value (little-endian, native widths):
 *   0  kind code (int32)     4  padding     8  payload, by kind:
 *   none, nil          int32 0                               16 bytes in all
 *   boolean            int32 0 or 1                          16
 *   light userdata     the pointer                           16
 *   number             the double                            16
 *   string             uint64 length L, the bytes, a zero    16 + (L + 1 rounded up to 8)
 *   table              int32 pair count N, then at 16 the N pairs, key then value
 *   direct object      the class record, the instance bytes  16 + instance size
 *   nested cargo       one packed value                      8 + its size
 *   extension kinds    what the extension wrote              8 + its size
 *
 * A cargo is a value tree that native code builds without a Lua state, node by node in
 * pre-order: a table node is followed by its 2N entries, key then value, each itself a
 * complete subtree. A cargo holds exactly one value. */
#ifndef TQKERNEL_TRANSIT_H
#define TQKERNEL_TRANSIT_H

#include <stddef.h>
#include <stdint.h>

#include <tqkernel/direct_objects.h>
#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>

TQ_BEGIN_DECLS

/* Kind codes shared by packed values and cargo nodes: Lua's type tags plus one. */
enum {
  TqTransitKind_none = -1,
  TqTransitKind_nil = 0,
  TqTransitKind_boolean = 1,
  TqTransitKind_lightUserdata = 2,
  TqTransitKind_number = 3,
  TqTransitKind_string = 4,
  TqTransitKind_table = 5,
  TqTransitKind_function = 6,
  TqTransitKind_directObject = 7,
  TqTransitKind_thread = 8,
  TqTransitKind_nestedCargo = 100
};

/* ---- Packed values and messages ---- */

/* One allocation: this header, then the packed value. The link belongs to the queue that
 * holds the message. */
typedef struct TqTransitMessage {
  uint64_t size; /* of the packed value */
  struct TqTransitMessage *next;
} TqTransitMessage;

static inline void *TqTransitMessage_packedValue(TqTransitMessage *message) {
  return message + 1;
}

/* Packs the value at index into destination and returns its size; with a NULL
 * destination only measures, without side effects. Returns 0, after printing the reason
 * to standard error, when the value cannot be packed. A table that contains itself
 * raises "stack overflow (No space in source for copy.)". */
TQ_API size_t TqTransitValue_pack(lua_State *L, int index, int canUseMoveSemantics,
                                  void *destination);
/* Pushes the value packed at packed and returns the bytes consumed. Direct objects are
 * adopted: their packed copies are moved from and disposed of. */
TQ_API size_t TqTransitValue_unpack(lua_State *L, void *packed);
/* Prints the value packed at packed to standard error; returns the bytes consumed. */
TQ_API size_t TqTransitValue_dump(const void *packed);

/* A new message holding the value at index, its bytes not written by packing set to
 * 0xAB; NULL when the value cannot be packed. */
TQ_API TqTransitMessage *TqTransitMessage_fromLuaValue(lua_State *L, int index,
                                                       int canUseMoveSemantics);
TQ_API void TqTransitMessage_free(TqTransitMessage *message);

/* Packs the value at sourceIndex of source and pushes it on destination; aborts the
 * process when the value cannot be packed. Both states must be usable by the caller. */
TQ_API void TqTransitQueue_copyFromLuaStateToLuaState(lua_State *source, int sourceIndex,
                                                      lua_State *destination,
                                                      int canUseMoveSemantics);

/* ---- Cargo ---- */

typedef struct TqTransitCargo TqTransitCargo;
typedef struct TqTransitCargoNode TqTransitCargoNode;

TQ_API TqTransitCargo *TqTransitQueue_newCargo(void);
/* Each push appends one node and returns it. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushNil(TqTransitCargo *cargo);
/* The value is kept as given: any non-zero value arrives as true. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushBoolean(TqTransitCargo *cargo, int32_t value);
TQ_API TqTransitCargoNode *TqTransitCargo_pushLightUserData(TqTransitCargo *cargo, void *pointer);
TQ_API TqTransitCargoNode *TqTransitCargo_pushNumber(TqTransitCargo *cargo, double value);
TQ_API TqTransitCargoNode *TqTransitCargo_pushString(TqTransitCargo *cargo, const char *text);
/* Copies length + 1 bytes: bytes[length] must be readable and is meant to be the
 * terminating zero. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushLString(TqTransitCargo *cargo, const char *bytes,
                                                      size_t length);
/* Exactly pairCount keys and pairCount values, alternating, must follow. */
TQ_API TqTransitCargoNode *TqTransitCargo_newTable(TqTransitCargo *cargo, int32_t pairCount);
/* The object is packed by its class's copy operation when the cargo is converted. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushDirectObject(TqTransitCargo *cargo,
                                                           const TqDirectObjectClass *objectClass,
                                                           void *object,
                                                           int32_t canUseMoveSemantics);
/* Wraps inner, which must hold one value and is consumed with cargo. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushTransitCargo(TqTransitCargo *cargo,
                                                           TqTransitCargo *inner);

/* Converts the cargo into a message and consumes it. When the cargo cannot be measured
 * (a kind without a packed form, a table missing entries) returns NULL and leaves the
 * cargo as it was. */
TQ_API TqTransitMessage *TqTransitMessage_fromCargo(TqTransitCargo *cargo);

/* What a walk tells its callback about one node; zeroed before each node. */
typedef struct TqTransitCargoVisit {
  int32_t kind;
  int32_t booleanValue;
  double numberValue;
  void *pointerValue; /* never filled */
  uint64_t stringLength;
  const char *stringBytes; /* inside the node */
  int32_t tablePairCount;  /* N at a table's opening visit, 0 at its closing visit */
} TqTransitCargoVisit;

typedef void (*TqTransitCargoVisitor)(void *context, const TqTransitCargoVisit *visit);

/* With a NULL callback, this context makes a walk free each node it has visited. */
#define TqTransitCargo_freeingWalk ((void *)(uintptr_t)0xFEEE0000u)

/* Visits every node in list order (nil, boolean, number, string and table only); returns
 * 1 when every node was visited, 0 at the first node of another kind. A table is visited
 * twice: before its entries and after them. */
TQ_API int TqTransitCargo_iterateCargo(TqTransitCargo *cargo, TqTransitCargoVisitor callback,
                                       void *context);
/* Frees the cargo without sending it. Only nil, boolean, number, string and table trees
 * are freed; the nodes of other kinds are left to their owners. The header is always
 * freed. */
TQ_API void TqTransitCargo_releaseCargo(TqTransitCargo *cargo);

/* ---- Extensions ----
 * Further value kinds are taught to packing and unpacking by extensions, consulted in
 * registration order. Register every extension before transit happens on other threads. */
typedef struct TqTransitExtension {
  /* Packing: (L, index, Lua type); unpacking: (L, 0, stored kind); dumping: (NULL, 0,
   * stored kind). Returns the extension kind code, or 0 when not this extension's. */
  int32_t (*claim)(lua_State *L, int index, int32_t kind);
  /* Writes the payload (destination NULL: only measures); returns its size, 0 for
   * failure. */
  size_t (*pack)(int32_t kind, void *destination, lua_State *L, int index);
  /* Pushes exactly one value; returns the payload size consumed, 0 for failure. */
  size_t (*unpack)(int32_t kind, lua_State *L, const void *payload);
  /* Prints the payload to standard error; returns its size. */
  size_t (*dump)(int32_t kind, const void *payload);
} TqTransitExtension;

/* Appends a copy of the operations to the process-wide list and returns the copy. */
TQ_API const TqTransitExtension *TqTransitQueue_registerExtension(const TqTransitExtension *extension);

/* ---- Transit queues ----
 * A thread-safe, first-in first-out queue of packed values: the one channel between
 * universes. Any thread may enqueue; readers dequeue, optionally waiting with a time
 * limit. A queue is reference counted and shared by handles; Lua sees it as a direct
 * object of the class TqTransitQueue_Class, which can itself travel inside a message.
 *
 * Every handle carries a mark that tells whether releasing it gives back a reference:
 *   0xABBABABE  made with the queue (createQueue, the Lua constructor)      yes
 *   0xABBAACDC  made by the class copy when a queue was packed for transit   yes
 *   0xBEE6EE51  taken by checkRetainFromLua                                  yes
 *   0xDEADACDC  the source of a move                                        no
 *   0xDEADABBA  a collected Lua queue object                                no
 *   0           a Lua queue object made by pushQueue_L                       no */

typedef struct TqTransitQueue TqTransitQueue; /* a handle */
typedef struct TqTransitQueueString TqTransitQueueString;

/* Instances are one handle (16 bytes). Methods "enqueue" (value, optional move flag),
 * "dequeue" (optional wait flag, optional delay in seconds), "close", "__gc"; read-only
 * property "closed". */
TQ_API extern const TqDirectObjectClass TqTransitQueue_Class;

/* A new queue and its first handle; NULL when the handle cannot be allocated. The move
 * flag is the default of enqueues that do not give one. */
TQ_API TqTransitQueue *TqTransitQueue_createQueue(int canUseMoveSemantics);
/* The queue object at index, else raises "Expected object of class TransitQueue at index
 * %d, got value of type %s."; returns a new handle that holds a reference. */
TQ_API TqTransitQueue *TqTransitQueue_checkRetainFromLua(lua_State *L, int index);
/* Pushes a new queue object sharing the handle's queue. It takes a reference that it
 * never gives back: the queue outlives every object made this way. Returns 1. */
TQ_API int TqTransitQueue_pushQueue_L(lua_State *L, TqTransitQueue *queue);
/* The Lua constructor: argument 2, when present and not nil, is the boolean default move
 * flag (false otherwise). Pushes a new queue object; returns 1. */
TQ_API int TqTransitQueue_new_L(lua_State *L);
/* Gives back the handle's reference, if it holds one, and frees the handle. The last
 * reference destroys the queue: release first prints "Objects orphaned in transit
 * queue" and a dump of each undelivered message to standard error; releaseSilent does
 * not. A handle that was moved from holds no reference and is only freed; a handle with
 * any other mark is left alone. */
TQ_API void TqTransitQueue_release(TqTransitQueue *queue);
TQ_API void TqTransitQueue_releaseSilent(TqTransitQueue *queue);
/* Read without locking: only a hint. */
TQ_API int TqTransitQueue_isEmpty(TqTransitQueue *queue);
/* Enqueues the value at index with the queue's default move flag. Returns 1, or 0 when
 * the queue is closed; a value that cannot be packed raises "Assertion failed: packed". */
TQ_API int TqTransitQueue_enqueueToQueue(lua_State *L, TqTransitQueue *queue, int index);
/* Converts the cargo into a message, enqueues it and consumes the cargo, closed queue
 * or not. */
TQ_API void TqTransitQueue_enqueueAndReleaseCargo(TqTransitQueue *queue, TqTransitCargo *cargo);
/* Takes the first message and pushes its value; returns 1, or 0 when nothing was taken.
 * With wait set, an empty queue is waited on for delay seconds per wake-up (0: without
 * limit). A delay that is not >= 0 raises "Assertion failed: delay >= 0" on L (a program
 * error when L is NULL). */
TQ_API int TqTransitQueue_dequeueToLuaState(lua_State *L, TqTransitQueue *queue, int wait,
                                            double delay);
/* As dequeueToLuaState, without a Lua state: the first message must hold a string (else
 * the process aborts). Returns the taken message as a string record, or NULL. */
TQ_API TqTransitQueueString *TqTransitQueue_dequeueCopyOfString(TqTransitQueue *queue, int wait,
                                                                double delay);
/* The string's bytes, zero-terminated, inside the record's message; stores the length. */
TQ_API const char *TqTransitQueue_stringToCString(TqTransitQueueString *string, size_t *length);
/* Frees the record and the message behind it. */
TQ_API void TqTransitQueue_releaseString(TqTransitQueueString *string);

/* Appends the queue as a direct object: the handle is copied (moved, with move set) when
 * the cargo is converted. */
TQ_API TqTransitCargoNode *TqTransitCargo_pushTransitQueue(TqTransitCargo *cargo,
                                                           TqTransitQueue *queue,
                                                           int32_t canUseMoveSemantics);

TQ_END_DECLS

#endif
