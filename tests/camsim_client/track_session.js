// Plays one track as some recorders do: every request but OPTIONS and DESCRIBE goes to the track's own URL.
// track_session.js rtsp://HOST:PORT/PATH udp|tcp TRACK  -> one line of JSON
'use strict';
const crypto = require('crypto');
const dgram = require('dgram');
const net = require('net');

const [, , url, transport, track] = process.argv;
const { hostname, port } = new URL(url);
const md5 = (text) => crypto.createHash('md5').update(text).digest('hex');
const control = net.connect(Number(port), hostname);
const media = dgram.createSocket('udp4');
let pending = Buffer.alloc(0);
let waiting = null;
let cseq = 2;
const packets = [];

// Interleaved frames are collected, and a complete reply is handed to whoever waits for it.
control.on('data', (data) => {
  pending = Buffer.concat([pending, data]);
  for (;;) {
    if (pending[0] === 0x24) {
      if (pending.length < 4 || pending.length < 4 + pending.readUInt16BE(2)) return;
      if (pending[1] === 0) packets.push(pending.subarray(4, 4 + pending.readUInt16BE(2)));
      pending = pending.subarray(4 + pending.readUInt16BE(2));
      continue;
    }
    const end = pending.indexOf('\r\n\r\n');
    if (end < 0) return;
    const head = pending.toString('latin1', 0, end);
    const length = Number((/Content-Length: (\d+)/i.exec(head) || [0, 0])[1]);
    if (pending.length < end + 4 + length) return;
    const body = pending.toString('latin1', end + 4, end + 4 + length);
    pending = pending.subarray(end + 4 + length);
    waiting({ head, body, status: Number(head.split(' ')[1]) });
  }
});
media.on('message', (packet, from) => from.address === hostname && packets.push(packet));

function send(method, target, headers = [], login = null) {
  const lines = [`${method} ${target} RTSP/1.0`, `CSeq: ${cseq++}`, ...headers];
  if (login) lines.push(login);
  control.write(lines.join('\r\n') + '\r\n\r\n');
  return new Promise((resolve) => (waiting = resolve));
}

async function ask(method, target, headers) {
  const reply = await send(method, target, headers);
  if (reply.status !== 401) return reply;
  const value = (name) => new RegExp(`${name}="([^"]*)"`).exec(reply.head)[1];
  const response = md5(`${md5(`admin:${value('realm')}:secret`)}:${value('nonce')}:${md5(`${method}:${target}`)}`);
  return send(method, target, headers,
    `Authorization: Digest username="admin", realm="${value('realm')}", nonce="${value('nonce')}", ` +
    `uri="${target}", response="${response}"`);
}

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function main() {
  await new Promise((resolve) => media.bind(0, resolve));
  const local = media.address().port;
  const target = `${url}/stream=${track}`;
  const statuses = {};
  const step = async (method, where, headers) => {
    const reply = await ask(method, where, headers);
    statuses[method] = reply.status;
    return reply;
  };
  await step('OPTIONS', url);
  const sdp = await step('DESCRIBE', url);
  const setup = await step('SETUP', target,
    [transport === 'udp' ? `Transport: RTP/AVP;unicast;client_port=${local}-${local + 1}`
      : 'Transport: RTP/AVP/TCP;unicast;interleaved=0-1']);
  const session = [`Session: ${/Session: *([^;\r\n]*)/.exec(setup.head)[1]}`];
  const play = await step('PLAY', target, session);
  while (packets.length < 30) await pause(20);
  await step('GET_PARAMETER', target, session);
  await step('TEARDOWN', target, session);
  // What was sent before is read sooner or later; a camera that goes on is never quiet for so long.
  let seen = -1;
  for (let i = 0; i < 20 && seen !== packets.length; ++i) {
    seen = packets.length;
    await pause(300);
  }
  console.log(JSON.stringify({
    statuses, payloadType: packets[0][1] & 127, sdpBytes: sdp.head.length + 4 + sdp.body.length,
    rtcpInterval: (/RTCP-Interval: (\d+)/.exec(play.head) || [0, ''])[1], stopped: seen === packets.length,
  }));
  process.exit(0);
}
main();
