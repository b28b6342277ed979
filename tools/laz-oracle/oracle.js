// node oracle.js compare FOLDER   decodes each NAME.laz and compares its records with those of NAME.las beside it
// node oracle.js measure FOLDER…  points a second over all *.laz of each folder

import { readFileSync, readdirSync, existsSync } from 'node:fs';
import { join } from 'node:path';
import lazPerf from 'laz-perf';

const ROUNDS = 7;
const library = await lazPerf.createLazPerf();

const lazFiles = (folder) => readdirSync(folder).filter((name) => name.endsWith('.laz')).sort().map((name) => join(folder, name));

/** Calls onPoint(bytes of a record) for each point; returns their number. */
function decode(file, onPoint) {
  const input = library._malloc(file.length);
  library.HEAPU8.set(file, input);
  const decoder = new library.LASZip();
  decoder.open(input, file.length);
  const count = decoder.getCount();
  const length = decoder.getPointLength();
  const record = library._malloc(length);
  for (let i = 0; i < count; ++i) {
    decoder.getPoint(record);
    onPoint?.(library.HEAPU8.subarray(record, record + length), i);
  }
  decoder.delete();
  library._free(record);
  library._free(input);
  return count;
}

function firstDifference(compressed, plain) {
  const start = plain.readUInt32LE(96);
  const length = plain.readUInt16LE(105);
  let difference = -1;
  const count = decode(compressed, (record, i) => {
    const expected = plain.subarray(start + i * length, start + (i + 1) * length);
    if (difference < 0 && Buffer.compare(record, expected) !== 0) difference = i;
  });
  const expectedCount = (plain.length - start) / length;
  return count === expectedCount ? difference : Math.min(count, expectedCount);
}

function compare(folder) {
  let different = 0;
  for (const path of lazFiles(folder)) {
    const plainPath = path.replace(/laz$/, 'las');
    if (!existsSync(plainPath)) continue;
    const point = firstDifference(readFileSync(path), readFileSync(plainPath));
    console.log(point < 0 ? 'same     ' : `point ${point} differs`, path);
    if (point >= 0) ++different;
  }
  process.exitCode = different === 0 ? 0 : 1;
}

function measure(folder) {
  const files = lazFiles(folder).map((path) => readFileSync(path));
  let best = Infinity;
  let points = 0;
  for (let round = 0; round < ROUNDS; ++round) {
    const begin = process.hrtime.bigint();
    points = files.reduce((sum, file) => sum + decode(file), 0);
    best = Math.min(best, Number(process.hrtime.bigint() - begin) / 1e9);
  }
  console.log(`${(points / best / 1e6).toFixed(2)} million points a second, ${points} points`, folder);
}

const [command, ...folders] = process.argv.slice(2);
if (command === 'compare' && folders.length === 1) compare(folders[0]);
else if (command === 'measure' && folders.length > 0) folders.forEach(measure);
else {
  console.error('usage: node oracle.js compare FOLDER | measure FOLDER…');
  process.exitCode = 2;
}
