// The gateway called with Node's xmlrpc package (see ../README.md for the
// checks and the submission every client sends).
'use strict';

const xmlrpc = require('xmlrpc');
const {runChecks, runCalls} = require('./checks');

const [url, tag, mode] = process.argv.slice(2);
const client = xmlrpc.createClient(url);

// The package writes a string holding < or & as a CDATA section, which the
// gateway does not read (the string arrives empty). A custom type with the
// string tag is written as escaped text instead.
class Text extends xmlrpc.CustomType {}
Text.prototype.tagName = 'string';

function escaped(v) {
  if (typeof v === 'string') return /[<&]/.test(v) ? new Text(v) : v;
  if (Array.isArray(v)) return v.map(escaped);
  if (v && typeof v === 'object' && v.constructor === Object) {
    return Object.fromEntries(Object.entries(v).map(([k, x]) => [k, escaped(x)]));
  }
  return v;
}

function call(method, param) {
  return new Promise((resolve, reject) => {
    client.methodCall(method, param === undefined ? [] : [escaped(param)], (err, value) => {
      if (err) reject(err);
      else resolve(value);
    });
  });
}

(mode === 'calls' ? runCalls(call) : runChecks(tag, call)).catch((e) => {
  console.error(e);
  process.exit(1);
});
