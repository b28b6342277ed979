// node copc.js FILE   number and digest (FNV-1a) of the records of each node of a COPC file

import { Copc, Getter } from 'copc';

const PRIME = 0x100000001b3n, BASIS = 0xcbf29ce484222325n, MASK = (1n << 64n) - 1n;

const get = Getter.create(process.argv[2]);
const copc = await Copc.create(get);
const nodes = {};
for (const pages = [copc.info.rootHierarchyPage]; pages.length > 0;) {
  const page = await Copc.loadHierarchyPage(get, pages.pop());
  Object.assign(nodes, page.nodes);
  pages.push(...Object.values(page.pages));
}
for (const [key, node] of Object.entries(nodes).filter(([, node]) => node.pointCount > 0).sort()) {
  let digest = BASIS;
  for (const byte of await Copc.loadPointDataBuffer(get, copc.header, node)) {
    digest = ((digest ^ BigInt(byte)) * PRIME) & MASK;
  }
  console.log(key, node.pointCount, digest.toString(16).padStart(16, '0'));
}
