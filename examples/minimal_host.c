/* A complete host in C11: reads a pipe through the module into a file, takes checkpoints, and goes
 * on where it was when it is started again with the same arguments, whenever it was killed before:
 *
 *   minimal_host_c PIPE OUTPUT FOLDER [OPTIONS]
 *
 * FOLDER gets the job's own files, job.note and job.fbf. OPTIONS is the initialisation string. All
 * texts are in the code page of the process. */
#include <tallow/tallow.h>
#include <windows.h>

#include <inttypes.h>
#include <io.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { BLOCKS_PER_CHECKPOINT = 64, PATH_ROOM = 512, OPTIONS_ROOM = 4096 };

/* How far the job is. The output up to `progress` holds the blocks before block `position`, but not
 * that block itself, which is the first that the module delivers again. */
typedef struct Note {
  uint64_t position;
  uint64_t progress;
  unsigned done; /* 1: the data has ended, and all of it is in the output */
} Note;

static char noteFile[PATH_ROOM];
static char draftFile[PATH_ROOM];
static char fallbackFile[PATH_ROOM];
static FILE* output;
static TallowPIDMMain pidmMain;
static TallowInitBlock init;
static TallowOpenBlock opening;

static bool say(const char* what) {
  fprintf(stderr, "minimal_host_c: %s\n", what);
  return false;
}

/* Sends one request; its return code. Reports every failure. */
static uint32_t ask(uint32_t code, void* parameters) {
  TallowRequestBlock request = {0};
  request.requestCode = code;
  pidmMain(&request, parameters);
  if (request.returnCode != pmrcSuccess && request.returnCode != pmrcEOF) {
    const bool hasText = request.returnCode == pmrcFailed && request.messageText != NULL;
    fprintf(stderr, "minimal_host_c: request %u failed with %s (%u): %s\n", (unsigned)code,
            tallow_code_name(request.returnCode), (unsigned)request.returnCode,
            hasText ? request.messageText : tallow_code_text(request.returnCode));
  }
  return request.returnCode;
}

/* No note is a new job, but one that cannot be read must not become one. */
static bool loadNote(Note* note) {
  memset(note, 0, sizeof *note);
  FILE* file = fopen(noteFile, "rb");
  if (file == NULL) {
    return GetFileAttributesA(noteFile) == INVALID_FILE_ATTRIBUTES ||
           say("cannot open the note of the job");
  }
  const int found = fscanf(file, "tallow note 1 position %" SCNu64 " progress %" SCNu64 " done %u",
                           &note->position, &note->progress, &note->done);
  fclose(file);
  return found == 3 || say("the note of the job is damaged");
}

static bool flush(FILE* file) {
  return fflush(file) == 0 && _commit(_fileno(file)) == 0;
}

/* First the output, then the note that counts it: each is on the disk before the next step begins,
 * and the old note is replaced in one step. */
static bool saveNote(const Note* note) {
  if (!flush(output)) return say("cannot write the output");
  FILE* file = fopen(draftFile, "wb");
  bool saved = file != NULL &&
               fprintf(file, "tallow note 1\nposition %" PRIu64 "\nprogress %" PRIu64 "\ndone %u\n",
                       note->position, note->progress, note->done) > 0 &&
               flush(file);
  if (file != NULL && fclose(file) != 0) saved = false;
  saved = saved &&
          MoveFileExA(draftFile, noteFile, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  return saved || say("cannot write the note of the job");
}

static bool takeCheckpoint(Note* note, uint64_t length) {
  TallowPositionBlock block = {0};
  block.instanceHandle = opening.instanceHandle;
  if (ask(pmiPIDMOptGetPos, &block) != pmrcSuccess) return false;
  memcpy(&note->position, block.position, TALLOW_POSITION_SIZE);
  note->progress = length;
  return saveNote(note);
}

/* The blocks from the pipe into the output, up to the end of the data. */
static bool copyBlocks(Note* note, char* buffer) {
  TallowReadBlock read = {0};
  read.instanceHandle = opening.instanceHandle;
  read.dataBuffer = buffer;
  uint64_t length = note->progress;
  bool due = note->position != 0; /* after a restart, once more at the first block */
  for (uint64_t blocks = 1;; ++blocks) {
    const uint32_t code = ask(pmiPIDMOptRead, &read);
    if (code == pmrcEOF) break;
    if (code != pmrcSuccess) return false;
    if ((due || blocks % BLOCKS_PER_CHECKPOINT == 0) && !takeCheckpoint(note, length)) {
      return false;
    }
    due = false;
    if (fwrite(buffer, 1, read.dataLength, output) != read.dataLength) {
      return say("cannot write the output");
    }
    length += read.dataLength;
  }
  note->progress = length;
  note->done = 1; /* before Close, which deletes the fallback file */
  return saveNote(note);
}

static bool goBack(Note* note) {
  if (note->position == 0) return true;
  TallowPositionBlock block = {0};
  block.instanceHandle = opening.instanceHandle;
  block.positionLength = TALLOW_POSITION_SIZE;
  block.position = &note->position;
  return ask(pmiPIDMOptSetPos, &block) == pmrcSuccess;
}

/* Close deletes the fallback file once a Read has answered the end of the data. If the end could
 * not be noted, the file must stay. */
static bool closePipe(bool finished) {
  if (!finished) {
    TallowAttributeBlock keep = {0};
    keep.moduleHandle = init.moduleHandle;
    strcpy(keep.attributeName, "PRESERVE_RESTART_INFO");
    strcpy(keep.attributeValue, "YES");
    if (ask(pmiPIDMOptPutA_A, &keep) != pmrcSuccess) return false;
  }
  TallowCloseBlock close = {0};
  close.instanceHandle = opening.instanceHandle;
  return ask(pmiPIDMOptClose, &close) == pmrcSuccess && finished;
}

static bool openPipe(const char* pipe, char* options) {
  init.interfaceLevel1 = TALLOW_INTERFACE_LEVEL_1;
  init.interfaceLevel2 = TALLOW_INTERFACE_LEVEL_2;
  strcpy(init.moduleName, "minimal_host_c");
  init.moduleNameLength = (uint32_t)strlen(init.moduleName);
  init.initString = options;
  init.initStringLength = (uint32_t)strlen(options);
  if (ask(pmiPIDMOptInit, &init) != pmrcSuccess) return false;

  const size_t length = strlen(pipe);
  if (length >= TALLOW_PIPE_NAME_SIZE) return say("the name of the pipe is too long");
  opening.moduleHandle = init.moduleHandle;
  opening.openMode = TALLOW_OPEN_FOR_READING;
  opening.pipeNameLength = (uint16_t)length;
  memcpy(opening.pipeName, pipe, length);
  return ask(pmiPIDMOptOpen, &opening) == pmrcSuccess;
}

static bool runJob(const char* pipe, char* options, Note* note) {
  if (!openPipe(pipe, options)) return false;
  char* buffer = malloc(opening.blockSize);
  const bool finished =
      (buffer != NULL || say("not enough memory")) && goBack(note) && copyBlocks(note, buffer);
  free(buffer);
  return closePipe(finished);
}

/* The output up to where the note says; the rest is delivered again. */
static bool openOutput(const char* path, const Note* note) {
  output = fopen(path, note->progress != 0 ? "r+b" : "wb");
  if (output == NULL) return say("cannot open the output");
  if (_filelengthi64(_fileno(output)) < (long long)note->progress) {
    return say("the output is shorter than the job left it");
  }
  return (_chsize_s(_fileno(output), (long long)note->progress) == 0 &&
          fseek(output, 0, SEEK_END) == 0) ||
         say("cannot cut the output");
}

static bool loadModule(void) {
  /* LoadLibrary looks into the folder of the program first. */
  const HMODULE module = LoadLibraryA("tallowin.dll");
  if (module == NULL) return say("cannot load tallowin.dll");
  const FARPROC function = GetProcAddress(module, "PIDMMain");
  if (function == NULL) return say("tallowin.dll has no PIDMMain");
  memcpy(&pidmMain, &function, sizeof pidmMain);
  return true;
}

/* False if one of them is too long. */
static bool nameFiles(const char* folder, const char* given, char* options) {
  const int lengths[] = {
      snprintf(noteFile, PATH_ROOM, "%s\\job.note", folder),
      snprintf(draftFile, PATH_ROOM, "%s\\job.note.new", folder),
      snprintf(fallbackFile, PATH_ROOM, "%s\\job.fbf", folder),
      snprintf(options, OPTIONS_ROOM, "%s Fallback_Directory=\"%s\" Fallback_file=job.fbf", given,
               folder)};
  return (lengths[1] < PATH_ROOM && lengths[3] < OPTIONS_ROOM) ||
         say("the folder's name or the options are too long");
}

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    fprintf(stderr, "usage: minimal_host_c PIPE OUTPUT FOLDER [OPTIONS]\n");
    return 2;
  }
  char options[OPTIONS_ROOM];
  Note note;
  if (!nameFiles(argv[3], argc == 5 ? argv[4] : "", options) || !loadNote(&note)) return 1;
  if (note.done) {
    DeleteFileA(fallbackFile); /* left there if the host died between its note and Close */
    return 0;
  }
  if (!openOutput(argv[2], &note) || !loadModule()) return 1;
  const bool finished = runJob(argv[1], options, &note);
  TallowCloseBlock unread = {0};
  ask(pmiPIDMOptShut, &unread);
  return finished && fclose(output) == 0 ? 0 : 1;
}
