// Uses a simulated camera through an ONVIF client that is not ours. Prints what it found as one line of JSON.
// judge.js discover | look HOST:PORT [PASSWORD] | move HOST:PORT pan,tilt,zoom
// | encode HOST:PORT TOKEN,ENCODING,WIDTH,HEIGHT,QUALITY,KBIT
'use strict';
const { Cam, Discovery } = require('onvif');

const done = (result) => console.log(JSON.stringify(result));
const promised = (object, name, ...args) =>
  new Promise((resolve, reject) =>
    object[name](...args, (error, value) => (error ? reject(error) : resolve(value))));

function discover() {
  Discovery.on('error', () => {});
  Discovery.probe({ device: 'lo', timeout: 1000 }, (error, cams) => {
    if (error) throw error;
    done(cams.map((cam) => ({ host: cam.hostname, port: Number(cam.port), path: cam.path })));
  });
}

function connect(address, password = 'secret') {
  const [hostname, port] = address.split(':');
  return new Promise((resolve, reject) => {
    const cam = new Cam({ hostname, port, username: 'admin', password, timeout: 20000 }, (error) =>
      error ? reject(error) : resolve(cam));
  });
}

async function look(address, password) {
  const cam = await connect(address, password);
  const result = { information: await promised(cam, 'getDeviceInformation'), profiles: [], presets: {} };
  for (const profile of cam.profiles) {
    const profileToken = profile.$.token;
    const encoder = profile.videoEncoderConfiguration;
    result.profiles.push({
      token: profileToken,
      encoding: encoder.encoding,
      size: [encoder.resolution.width, encoder.resolution.height],
      audio: profile.audioEncoderConfiguration ? profile.audioEncoderConfiguration.encoding : '',
      stream: (await promised(cam, 'getStreamUri', { protocol: 'RTSP', profileToken })).uri,
      snapshot: (await promised(cam, 'getSnapshotUri', { profileToken })).uri,
    });
  }
  if (cam.uri && cam.uri.ptz) result.presets = await promised(cam, 'getPresets', {});
  result.encoders = (await promised(cam, 'getVideoEncoderConfigurations')).length;
  done(result);
}

async function move(address, position) {
  const cam = await connect(address);
  const [x, y, zoom] = position.split(',').map(Number);
  await promised(cam, 'absoluteMove', { x, y, zoom });
  for (;;) {
    const status = await promised(cam, 'getStatus', {});
    if (status.moveStatus.panTilt === 'IDLE' && status.moveStatus.zoom === 'IDLE') return done(status.position);
  }
}

async function encode(address, values) {
  const cam = await connect(address);
  const [token, encoding, width, height, quality, bitrateLimit] = values.split(',');
  await promised(cam, 'setVideoEncoderConfiguration', {
    token, name: token, useCount: 1, encoding, quality, resolution: { width, height },
    rateControl: { frameRateLimit: 10, encodingInterval: 1, bitrateLimit },
    ...(encoding === 'H264' ? { H264: { govLength: 10, H264Profile: 'Main' } } : {}),
  });
  done({});
}

const [, , command, ...args] = process.argv;
Promise.resolve({ discover, look, move, encode }[command](...args)).catch((error) => {
  console.error(String(error.message || error));
  process.exit(1);
});
