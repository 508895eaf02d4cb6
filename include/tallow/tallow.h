/* Tallow access module: the host interface, for C11 and C++.
 *
 * A host loads tallowin.dll, looks up PIDMMain and calls it once per request, always from the
 * thread that loaded the library. Each call gets two blocks of memory that the host owns: the
 * request block, which says what is asked and receives the outcome, and a parameter block, whose
 * layout depends on the request. All blocks are packed, integers are little-endian, pointers have
 * 64 bits. Bytes 0 to 33 of either block belong to the host; the module never touches them.
 *
 * The interface fixes the names PIDMMain, pmi… and pmrc… as they are spelled here; what this header
 * adds by itself begins with Tallow or TALLOW_.
 *
 * Directions in the comments: [in] the host sets it before the call; [out] the module sets it
 * (the comment says when); [in/out] both.
 *
 * All texts are in the code page of the process, unless a comment says otherwise.
 */
#ifndef TALLOW_TALLOW_H
#define TALLOW_TALLOW_H

#include <stddef.h>
#include <stdint.h>

/* For this header alone; undefined at its end. */
#ifdef __cplusplus
#define TALLOW_LAYOUT(type, field, offset) \
  static_assert(offsetof(type, field) == (offset), #type "." #field " is at " #offset)
#define TALLOW_SIZE(type, size) static_assert(sizeof(type) == (size), #type " has " #size " bytes")
extern "C" {
#else
#define TALLOW_LAYOUT(type, field, offset) \
  _Static_assert(offsetof(type, field) == (offset), #type "." #field " is at " #offset)
#define TALLOW_SIZE(type, size) _Static_assert(sizeof(type) == (size), #type " has " #size " bytes")
#endif

/* Request codes: TallowRequestBlock.requestCode. */
enum {
  pmiPIDMOptInit = 1,    /* TallowInitBlock: read the options, get a module handle */
  pmiPIDMOptOpen = 2,    /* TallowOpenBlock: open a pipe, get an instance handle */
  pmiPIDMOptClose = 3,   /* TallowCloseBlock: close; may ask before it deletes the fallback file */
  pmiPIDMOptRead = 4,    /* TallowReadBlock: the next block of data */
  pmiPIDMOptWrite = 5,   /* any block, not read: always refused with pmrcNotSupported */
  pmiPIDMOptGetPos = 6,  /* TallowPositionBlock: take a checkpoint */
  pmiPIDMOptSetPos = 7,  /* TallowPositionBlock: go back to a checkpoint */
  pmiPIDMOptShut = 8,    /* any block, not read: does nothing */
  pmiPIDMOptID = 9,      /* TallowIdBlock: name and versions of the module */
  pmiPIDMOptCloseR = 10, /* TallowCloseBlock: close without asking */
  pmiPIDMOptGetA_A = 11, /* TallowAttributeBlock, as are the next three */
  pmiPIDMOptGetF_A = 12,
  pmiPIDMOptPutA_A = 13,
  pmiPIDMOptPutF_A = 14
};

/* Return codes: TallowRequestBlock.returnCode. */
enum {
  pmrcSuccess = 0,
  pmrcNotSupported = 6,       /* Write: the module only reads */
  pmrcAlreadyOpen = 8,        /* the instance has a pipe already */
  pmrcEOF = 9,                /* end of data; every later Read returns it again */
  pmrcReportFailed = 12,      /* a failure occurred while an earlier one was being reported */
  pmrcBadOpenMode = 13,       /* open mode is none of 1, 2, 3 */
  pmrcDelivery = 16,          /* a block cannot be served, or re-sent data differs */
  pmrcBadInterfaceLevel = 18, /* Init: levels are not 1001 and 2001 */
  pmrcEmptyOption = 20,       /* initialisation string: an option has no value */
  pmrcUnknownOption = 21,     /* initialisation string: unknown option */
  pmrcBadOption = 22,         /* initialisation string: value out of range */
  pmrcUnknownRequest = 24,    /* request code is none of 1 to 14 */
  pmrcBadPosition = 32,       /* SetPos: not a position that the module can go back to */
  pmrcBadAttribute = 33,      /* unknown attribute name, or no module handle */
  pmrcFailed = 34             /* see messageText and messageLength */
};

enum {
  TALLOW_HOST_HEADER_SIZE = 34,
  TALLOW_MESSAGE_AREA_SIZE = 512,  /* bytes that messageText points to, NUL included */
  TALLOW_INTERFACE_LEVEL_1 = 1001, /* TallowInitBlock.interfaceLevel1 */
  TALLOW_INTERFACE_LEVEL_2 = 2001, /* TallowInitBlock.interfaceLevel2 */
  TALLOW_MODULE_NAME_SIZE = 769,   /* room for the module name, NUL included */
  TALLOW_PIPE_NAME_SIZE = 65536,   /* room for the longest pipe name, NUL included */
  TALLOW_OPEN_FOR_READING = 1,     /* TallowOpenBlock.openMode: the only mode supported */
  TALLOW_POSITION_SIZE = 8,        /* bytes of a position: a 64-bit block number */
  TALLOW_ID_TEXT_SIZE = 32,
  TALLOW_ATTRIBUTE_NAME_SIZE = 259,
  TALLOW_ATTRIBUTE_VALUE_SIZE = 256
};

#pragma pack(push, 1)

/* First argument of PIDMMain. */
typedef struct TallowRequestBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  uint32_t requestCode;   /* [in] pmiPIDMOpt… */
  uint32_t returnCode;    /* [out] pmrc…; set to 0 on entry, before anything else */
  uint8_t reserved[4];    /* neither read nor written */
  uint32_t messageLength; /* [out, only with pmrcFailed] bytes of the whole failure text, which may
                             be longer than the 511 that messageText keeps */
  char* messageText;      /* [out, only with pmrcFailed] the failure text, NUL-terminated, in 512
                             bytes that the module owns; valid until the next request */
} TallowRequestBlock;
TALLOW_LAYOUT(TallowRequestBlock, requestCode, 34);
TALLOW_LAYOUT(TallowRequestBlock, returnCode, 38);
TALLOW_LAYOUT(TallowRequestBlock, messageLength, 46);
TALLOW_LAYOUT(TallowRequestBlock, messageText, 50);
TALLOW_SIZE(TallowRequestBlock, 58);

/* Init. The module copies both texts; the host may free their buffers after the call. */
typedef struct TallowInitBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* moduleHandle;        /* [out, on success] valid until the library is unloaded */
  uint16_t interfaceLevel1;  /* [in] TALLOW_INTERFACE_LEVEL_1 */
  uint16_t interfaceLevel2;  /* [in] TALLOW_INTERFACE_LEVEL_2 */
  uint32_t moduleNameLength; /* [in] bytes of moduleName, at most 768 */
  uint8_t reserved[4];       /* neither read nor written */
  char moduleName[TALLOW_MODULE_NAME_SIZE]; /* [in/out] shown in the log's banner; the module
                                               writes a NUL at index moduleNameLength */
  uint32_t initStringLength;                /* [in] bytes of *initString */
  char* initString; /* [in] the initialisation string, in a buffer of initStringLength + 1
                       bytes: the module writes a NUL at index initStringLength. Null: empty */
} TallowInitBlock;
TALLOW_LAYOUT(TallowInitBlock, moduleHandle, 34);
TALLOW_LAYOUT(TallowInitBlock, interfaceLevel1, 42);
TALLOW_LAYOUT(TallowInitBlock, interfaceLevel2, 44);
TALLOW_LAYOUT(TallowInitBlock, moduleNameLength, 46);
TALLOW_LAYOUT(TallowInitBlock, moduleName, 54);
TALLOW_LAYOUT(TallowInitBlock, initStringLength, 823);
TALLOW_LAYOUT(TallowInitBlock, initString, 827);
TALLOW_SIZE(TallowInitBlock, 835);

/* Open. A host may allocate less than the whole struct: the module touches nothing after index
 * pipeNameLength of pipeName. */
typedef struct TallowOpenBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* moduleHandle;      /* [in/out] from Init; the same value is written back */
  int16_t openMode;        /* [in] TALLOW_OPEN_FOR_READING */
  uint16_t zero;           /* [out, on success] 0 */
  uint32_t blockSize;      /* [out, on success] bytes that Read's buffer must hold: 1048576 unless
                              the option Block_size says otherwise */
  void* instanceHandle;    /* [out] null on entry; on success valid until Close or CloseR */
  uint16_t pipeNameLength; /* [in] bytes of pipeName, not 0 */
  char pipeName[TALLOW_PIPE_NAME_SIZE]; /* [in/out] begins with \\.\pipe\; the module writes a NUL
                                           at index pipeNameLength. UTF-8 if the attribute
                                           CHARSET_NAME is UTF8 or UTF16 */
} TallowOpenBlock;
TALLOW_LAYOUT(TallowOpenBlock, moduleHandle, 34);
TALLOW_LAYOUT(TallowOpenBlock, openMode, 42);
TALLOW_LAYOUT(TallowOpenBlock, zero, 44);
TALLOW_LAYOUT(TallowOpenBlock, blockSize, 46);
TALLOW_LAYOUT(TallowOpenBlock, instanceHandle, 50);
TALLOW_LAYOUT(TallowOpenBlock, pipeNameLength, 58);
TALLOW_LAYOUT(TallowOpenBlock, pipeName, 60);

/* Close and CloseR. The instance handle is invalid afterwards. After a Read that answered pmrcEOF
 * the fallback file is deleted, unless the attribute PRESERVE_RESTART_INFO is YES. Close may ask a
 * person first, in a message box; CloseR never does. */
typedef struct TallowCloseBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* instanceHandle; /* [in] from Open */
} TallowCloseBlock;
TALLOW_LAYOUT(TallowCloseBlock, instanceHandle, 34);
TALLOW_SIZE(TallowCloseBlock, 42);

/* Read. */
typedef struct TallowReadBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* instanceHandle; /* [in] from Open */
  uint32_t dataLength;  /* [out] bytes placed in dataBuffer; 0 with pmrcEOF */
  void* dataBuffer;     /* [in] the host's buffer of TallowOpenBlock.blockSize bytes; not checked */
} TallowReadBlock;
TALLOW_LAYOUT(TallowReadBlock, instanceHandle, 34);
TALLOW_LAYOUT(TallowReadBlock, dataLength, 42);
TALLOW_LAYOUT(TallowReadBlock, dataBuffer, 46);
TALLOW_SIZE(TallowReadBlock, 54);

/* GetPos [out] and SetPos [in]. A position is the 64-bit number of the last delivered block; after
 * SetPos to block n (n > 0) the next Read delivers block n again. After a new load SetPos waits
 * until the writer has sent all data up to there. A GetPos that succeeds does not mean that there
 * is a fallback file: with No_FallBack, or when the file cannot be written, the job goes on
 * without. */
typedef struct TallowPositionBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* instanceHandle;    /* [in] from Open */
  uint32_t positionLength; /* GetPos [out] and SetPos [in]: TALLOW_POSITION_SIZE */
  void* position;          /* GetPos [out]: points into the module; copy the 8 bytes before the next
                              request. SetPos [in]: 8 bytes that GetPos returned */
} TallowPositionBlock;
TALLOW_LAYOUT(TallowPositionBlock, instanceHandle, 34);
TALLOW_LAYOUT(TallowPositionBlock, positionLength, 42);
TALLOW_LAYOUT(TallowPositionBlock, position, 46);
TALLOW_SIZE(TallowPositionBlock, 54);

/* One entry of the version list that ID returns. The module owns it; valid while it is loaded. */
typedef struct TallowComponentVersion {
  char name[TALLOW_ID_TEXT_SIZE];      /* NUL-terminated */
  char version[TALLOW_ID_TEXT_SIZE];   /* NUL-terminated, as 01.00.00.00 */
  struct TallowComponentVersion* next; /* null in the last entry */
} TallowComponentVersion;
TALLOW_LAYOUT(TallowComponentVersion, version, 32);
TALLOW_LAYOUT(TallowComponentVersion, next, 64);
TALLOW_SIZE(TallowComponentVersion, 72);

/* ID. */
typedef struct TallowIdBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  char name[TALLOW_ID_TEXT_SIZE];     /* [out] the module's file title, NUL-terminated */
  char version[TALLOW_ID_TEXT_SIZE];  /* [out] the module's file version, NUL-terminated */
  TallowComponentVersion* components; /* [out] first of seven component versions */
} TallowIdBlock;
TALLOW_LAYOUT(TallowIdBlock, name, 34);
TALLOW_LAYOUT(TallowIdBlock, version, 66);
TALLOW_LAYOUT(TallowIdBlock, components, 98);
TALLOW_SIZE(TallowIdBlock, 106);

/* The four attribute requests, at any time between Init and Close. The module writes nothing into
 * the block: a Get stores just as a Put does (only pmiPIDMOptPutA_A stores CHARSET_NAME). */
typedef struct TallowAttributeBlock {
  uint8_t hostHeader[TALLOW_HOST_HEADER_SIZE];
  void* moduleHandle;                               /* [in] from Init */
  uint8_t reserved[4];                              /* neither read nor written */
  char attributeName[TALLOW_ATTRIBUTE_NAME_SIZE];   /* [in] NUL-terminated */
  char attributeValue[TALLOW_ATTRIBUTE_VALUE_SIZE]; /* [in] NUL-terminated; read up to the NUL, so
                                                       a larger block may carry a longer value */
} TallowAttributeBlock;
TALLOW_LAYOUT(TallowAttributeBlock, moduleHandle, 34);
TALLOW_LAYOUT(TallowAttributeBlock, attributeName, 46);
TALLOW_LAYOUT(TallowAttributeBlock, attributeValue, 305);
TALLOW_SIZE(TallowAttributeBlock, 561);

#pragma pack(pop)

#undef TALLOW_LAYOUT
#undef TALLOW_SIZE

/* The module's one exported function, under this plain name, in the C calling convention of 64-bit
 * Windows. It returns nothing and lets no exception out: the blocks report everything. The
 * parameter block is the one that belongs to the request code. */
typedef void (*TallowPIDMMain)(TallowRequestBlock* request, void* parameters);

/* The name of a return code, as "pmrcEOF". A text of static lifetime, never null. */
static inline const char* tallow_code_name(uint32_t code) {
  switch (code) {
    case pmrcSuccess:
      return "pmrcSuccess";
    case pmrcNotSupported:
      return "pmrcNotSupported";
    case pmrcAlreadyOpen:
      return "pmrcAlreadyOpen";
    case pmrcEOF:
      return "pmrcEOF";
    case pmrcReportFailed:
      return "pmrcReportFailed";
    case pmrcBadOpenMode:
      return "pmrcBadOpenMode";
    case pmrcDelivery:
      return "pmrcDelivery";
    case pmrcBadInterfaceLevel:
      return "pmrcBadInterfaceLevel";
    case pmrcEmptyOption:
      return "pmrcEmptyOption";
    case pmrcUnknownOption:
      return "pmrcUnknownOption";
    case pmrcBadOption:
      return "pmrcBadOption";
    case pmrcUnknownRequest:
      return "pmrcUnknownRequest";
    case pmrcBadPosition:
      return "pmrcBadPosition";
    case pmrcBadAttribute:
      return "pmrcBadAttribute";
    case pmrcFailed:
      return "pmrcFailed";
    default:
      return "unknown return code";
  }
}

/* One English sentence about a return code, for a host that has no text of the module to show: only
 * pmrcFailed comes with one. ASCII, of static lifetime, never null. */
static inline const char* tallow_code_text(uint32_t code) {
  switch (code) {
    case pmrcSuccess:
      return "The request was carried out.";
    case pmrcNotSupported:
      return "The module only reads: use it for the input of a job.";
    case pmrcAlreadyOpen:
      return "The input has an open pipe already: close it before another is opened.";
    case pmrcEOF:
      return "The data has ended.";
    case pmrcReportFailed:
      return "Another failure occurred while a failure was being reported: see the module's log.";
    case pmrcBadOpenMode:
      return "The open mode is none of 1, 2 and 3: open for reading (1).";
    case pmrcDelivery:
      return "A block cannot be delivered, or the writer did not send the same data again: see the "
             "module's log.";
    case pmrcBadInterfaceLevel:
      return "The interface levels are not 1001 and 2001: the host was made for another module.";
    case pmrcEmptyOption:
      return "An option of the initialisation string has no value: see the module's log.";
    case pmrcUnknownOption:
      return "The initialisation string has an option that does not exist: see the module's log.";
    case pmrcBadOption:
      return "An option of the initialisation string has a value out of range: see the module's "
             "log.";
    case pmrcUnknownRequest:
      return "The module does not know this request: the host was made for another version.";
    case pmrcBadPosition:
      return "The job cannot go back to this position, or the writer sent less data than before: "
             "see the module's log.";
    case pmrcBadAttribute:
      return "There is no such attribute, or the module handle is missing.";
    case pmrcFailed:
      return "The request failed: see the text that came with it, or the module's log.";
    default:
      return "The module answered with a return code that this header does not know.";
  }
}

#ifdef __cplusplus
}
#endif

#endif /* TALLOW_TALLOW_H */
