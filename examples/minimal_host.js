// A complete host in JavaScript, through a foreign function interface (koffi), as a pattern for any
// language that can call C: reads a pipe through the module into a file, takes checkpoints, and goes
// on where it was when it is started again with the same arguments, whenever it was killed before:
//
//   node minimal_host.js MODULE PIPE OUTPUT FOLDER [OPTIONS]
//
// MODULE is tallowin.dll with its folder. FOLDER gets the job's own files, job.note and job.fbf.
// OPTIONS is the initialisation string. All texts are ASCII here: the module reads them in the code
// page of the process.
'use strict';
const fs = require('fs');
const koffi = require('koffi');

const BLOCKS_PER_CHECKPOINT = 64;
const INIT = 1, OPEN = 2, CLOSE = 3, READ = 4, GET_POS = 6, SET_POS = 7, SHUT = 8, PUT_A = 13;
const SUCCESS = 0, END_OF_DATA = 9, FAILED = 34;

// The blocks of tallow.h: packed, so without gaps between the fields.
const hostHeader = koffi.array('uint8_t', 34);
const Request = koffi.pack({
  hostHeader, requestCode: 'uint32_t', returnCode: 'uint32_t', reserved: 'uint32_t',
  messageLength: 'uint32_t', messageText: 'const char *'
});
const Init = koffi.pack({
  hostHeader, moduleHandle: 'void *', interfaceLevel1: 'uint16_t', interfaceLevel2: 'uint16_t',
  moduleNameLength: 'uint32_t', reserved: 'uint32_t', moduleName: koffi.array('char', 769),
  initStringLength: 'uint32_t', initString: 'void *'
});
const Open = koffi.pack({
  hostHeader, moduleHandle: 'void *', openMode: 'int16_t', zero: 'uint16_t', blockSize: 'uint32_t',
  instanceHandle: 'void *', pipeNameLength: 'uint16_t', pipeName: koffi.array('char', 65536)
});
const Close = koffi.pack({ hostHeader, instanceHandle: 'void *' });
const Read = koffi.pack({
  hostHeader, instanceHandle: 'void *', dataLength: 'uint32_t', dataBuffer: 'void *'
});
const Position = koffi.pack({
  hostHeader, instanceHandle: 'void *', positionLength: 'uint32_t', position: 'void *'
});
const Attribute = koffi.pack({
  hostHeader, moduleHandle: 'void *', reserved: 'uint32_t',
  attributeName: koffi.array('char', 259), attributeValue: koffi.array('char', 256)
});

// [request, parameters] => nothing, for each kind of parameter block.
function loadModule(path) {
  const library = koffi.load(path);
  const asks = new Map();
  return function ask(code, type, parameters) {
    if (!asks.has(type)) {
      asks.set(type, library.func('PIDMMain', 'void', [koffi.inout(koffi.pointer(Request)),
                                                       koffi.inout(koffi.pointer(type))]));
    }
    const request = empty(Request, { requestCode: code });
    asks.get(type)(request, parameters);
    if (request.returnCode === SUCCESS || request.returnCode === END_OF_DATA) {
      return request.returnCode;
    }
    const text = request.returnCode === FAILED ? request.messageText : "see the module's log";
    throw new Error(`request ${code} failed with ${request.returnCode}: ${text}`);
  };
}

// A block whose fields are zero but for those given.
function empty(type, fields) {
  const block = {};
  for (const [name, member] of Object.entries(type.members)) {
    if (name === 'hostHeader') block[name] = new Uint8Array(34);
    else if (/Name$|Value$/.test(name)) block[name] = '';
    else block[name] = /\*/.test(member.type.name) ? null : 0;
  }
  return Object.assign(block, fields);
}

// How far the job is. The output up to `progress` holds the blocks before block `position`, but not
// that block itself, which is the first that the module delivers again. No note is a new job, but
// one that cannot be read must not become one.
function loadNote(path) {
  if (!fs.existsSync(path)) return { position: 0, progress: 0, done: 0 };
  const match = /^tallow note 1\nposition (\d+)\nprogress (\d+)\ndone ([01])\n$/
      .exec(fs.readFileSync(path, 'latin1'));
  if (!match) throw new Error(`${path} is no note of a job`);
  return { position: Number(match[1]), progress: Number(match[2]), done: Number(match[3]) };
}

// First the output, then the note that counts it: each is on the disk before the next step begins,
// and the old note is replaced in one step.
function saveNote(path, note, output) {
  fs.fsyncSync(output);
  const draft = fs.openSync(path + '.new', 'w');
  fs.writeSync(draft, `tallow note 1\nposition ${note.position}\nprogress ${note.progress}\n` +
                          `done ${note.done}\n`);
  fs.fsyncSync(draft);
  fs.closeSync(draft);
  fs.renameSync(path + '.new', path);
}

// The output up to where the note says; the rest is delivered again.
function openOutput(path, note) {
  const output = fs.openSync(path, note.progress !== 0 ? 'r+' : 'w');
  if (fs.fstatSync(output).size < note.progress) throw new Error(`${path} is not what the job wrote`);
  fs.ftruncateSync(output, note.progress);
  return output;
}

function open(ask, pipe, options) {
  const text = Buffer.from(options + '\0', 'latin1'); // the module writes a NUL after the text
  const init = empty(Init, {
    interfaceLevel1: 1001, interfaceLevel2: 2001, moduleName: 'minimal_host.js',
    moduleNameLength: 15, initString: text, initStringLength: text.length - 1
  });
  ask(INIT, Init, init);
  const opening = empty(Open, {
    moduleHandle: init.moduleHandle, openMode: 1, pipeName: pipe, pipeNameLength: pipe.length
  });
  ask(OPEN, Open, opening);
  return opening;
}

function copyBlocks(ask, opening, note, notePath, output) {
  const instanceHandle = opening.instanceHandle;
  let due = note.position !== 0; // after a restart, once more at the first block
  if (due) {
    const position = Buffer.alloc(8);
    position.writeBigUInt64LE(BigInt(note.position));
    ask(SET_POS, Position, empty(Position, { instanceHandle, positionLength: 8, position }));
  }
  const dataBuffer = Buffer.alloc(opening.blockSize);
  let length = note.progress;
  for (let blocks = 1;; ++blocks) {
    const read = empty(Read, { instanceHandle, dataBuffer });
    if (ask(READ, Read, read) === END_OF_DATA) break;
    if (due || blocks % BLOCKS_PER_CHECKPOINT === 0) {
      const taken = empty(Position, { instanceHandle });
      ask(GET_POS, Position, taken);
      const position = Number(koffi.decode(taken.position, 'uint64_t'));
      saveNote(notePath, { position, progress: length, done: 0 }, output);
      due = false;
    }
    for (let at = 0; at < read.dataLength;) {
      at += fs.writeSync(output, dataBuffer, at, read.dataLength - at, length + at);
    }
    length += read.dataLength;
  }
  // Before Close, which deletes the fallback file.
  saveNote(notePath, { position: note.position, progress: length, done: 1 }, output);
}

function run(module, pipe, path, folder, options = '') {
  const notePath = `${folder}\\job.note`;
  const note = loadNote(notePath);
  if (note.done) {
    // Left there if the host died between its note and Close.
    fs.rmSync(`${folder}\\job.fbf`, { force: true });
    return;
  }
  const output = openOutput(path, note);
  const ask = loadModule(module);
  const opening =
      open(ask, pipe, `${options} Fallback_Directory="${folder}" Fallback_file=job.fbf`);
  const { moduleHandle, instanceHandle } = opening;
  try {
    copyBlocks(ask, opening, note, notePath, output);
  } catch (error) {
    // Close would delete the fallback file if the data has ended and only the note failed.
    ask(PUT_A, Attribute, empty(Attribute, {
      moduleHandle, attributeName: 'PRESERVE_RESTART_INFO', attributeValue: 'YES'
    }));
    ask(CLOSE, Close, empty(Close, { instanceHandle }));
    throw error;
  }
  ask(CLOSE, Close, empty(Close, { instanceHandle }));
  ask(SHUT, Close, empty(Close, {}));
  fs.closeSync(output);
}

if (process.argv.length < 6 || process.argv.length > 7) {
  console.error('usage: node minimal_host.js MODULE PIPE OUTPUT FOLDER [OPTIONS]');
  process.exitCode = 2;
} else {
  try {
    run(...process.argv.slice(2));
  } catch (error) {
    console.error(`minimal_host.js: ${error.message}`);
    process.exitCode = 1;
  }
}
