#!/usr/bin/python3
"""A game-server stand-in on aiortc, for interoperability tests of the kit's engine.

It answers one offer with H.264 video (a moving bar, with round-trip detection
SEI on every frame once a heartbeat has arrived) and Opus audio, answers "hb"
heartbeats as the reference game server does and reports everything that
happens, one JSON object per line on standard output:

  {"event": "answer", "sdp": ...}
  {"event": "state", "connection": "connected"}
  {"event": "channel", "label": "hb"}
  {"event": "message", "label": "km", "binary": false, "data": ..., "arrival": ms}
      (binary data in base64)
  {"event": "summary", "messages": {"hb": 3, ...}, "sei": frames-with-sei}

Input: one line on standard input, the offer as JSON {"type": "offer", "sdp": ...}.
It stops when standard input closes, or after --timeout seconds, whichever comes first.

Only loopback is used: ICE gathers on the addresses in $VRQ_ICE_ADDRESSES
(127.0.0.1 by default), which must all be 127.x.y.z, and no STUN or TURN
server is contacted.
"""

import argparse
import asyncio
import base64
import fractions
import json
import math
import os
import sys
import threading
import time

import aioice.ice
import av.logging
from aiortc import RTCConfiguration, RTCPeerConnection, RTCSessionDescription
from aiortc.codecs import h264
from aiortc.mediastreams import AUDIO_PTIME, MediaStreamTrack, VideoStreamTrack
from av import AudioFrame, VideoFrame

SEI_PREFIX = "VRQ"
SEI_UUID = bytes.fromhex("5652512d7274742d6465746563740001")


def now_ms():
    return int(time.time() * 1000)


def loopback_addresses():
    addresses = [a.strip() for a in os.environ.get("VRQ_ICE_ADDRESSES", "127.0.0.1").split(",") if a.strip()]
    if not addresses or any(not a.startswith("127.") for a in addresses):
        sys.exit("aiortc_answerer: VRQ_ICE_ADDRESSES must list loopback addresses only")
    return addresses


def restrict_ice_to(addresses):
    # aioice leaves loopback out and takes every other interface: offer exactly these instead.
    aioice.ice.get_host_addresses = lambda use_ipv4, use_ipv6: list(addresses)


class RttDetect:
    """The round-trip detection text, as the reference game server builds it."""

    def __init__(self):
        self._latest = None  # (client element, base, arrival), replaced whole
        self.frames = 0

    def on_heartbeat(self, heartbeat, arrival):
        detect = heartbeat.get("rtt_detect") if isinstance(heartbeat, dict) else None
        if not isinstance(detect, list) or not detect or not isinstance(detect[0], dict):
            return
        element = detect[0]
        if not isinstance(element.get("base"), int) or not isinstance(element.get("s"), int):
            return
        self._latest = (element, element["base"], arrival)

    def text(self):
        latest = self._latest
        if latest is None:
            return None
        element, base, arrival = latest
        server = {"id": "srv", "r": arrival - base, "s": now_ms() - base}
        return SEI_PREFIX + json.dumps({"rtt_detect": [element, server]}, separators=(",", ":"))


def sei_nal(text):
    payload = SEI_UUID + text.encode()
    body = bytearray([5])  # user data unregistered
    size = len(payload)
    while size >= 255:
        body.append(0xFF)
        size -= 255
    body.append(size)
    body += payload
    body.append(0x80)  # stop bit
    escaped = bytearray()
    zeros = 0
    for byte in body:
        if zeros >= 2 and byte <= 3:
            escaped.append(3)
            zeros = 0
        escaped.append(byte)
        zeros = zeros + 1 if byte == 0 else 0
    return bytes([0x06]) + bytes(escaped)


def use_libx264_only():
    # aiortc tries OpenMAX hardware first; the same software encoder everywhere keeps runs alike.
    create = h264.create_encoder_context
    h264.create_encoder_context = lambda codec_name, *args, **kwargs: create("libx264", *args, **kwargs)
    av.logging.set_level(av.logging.ERROR)


def insert_sei_into_h264(rtt):
    original = h264.H264Encoder._encode_frame

    def encode_frame(self, frame, force_keyframe):
        pending = rtt.text()
        for nal in original(self, frame, force_keyframe):
            # The SEI goes right before the picture's first slice.
            if pending is not None and nal and (nal[0] & 0x1F) in (1, 5):
                yield sei_nal(pending)
                rtt.frames += 1
                pending = None
            yield nal

    h264.H264Encoder._encode_frame = encode_frame


class MovingBarTrack(VideoStreamTrack):
    def __init__(self, width, height):
        super().__init__()
        self.width, self.height = width, height
        self.count = 0

    async def recv(self):
        pts, time_base = await self.next_timestamp()
        frame = VideoFrame(self.width, self.height, "yuv420p")
        y, u, v = frame.planes
        bar = (self.count * 8) % y.line_size
        row = bytearray([40]) * y.line_size
        row[bar:bar + 32] = bytearray([235]) * len(row[bar:bar + 32])
        y.update(bytes(row) * self.height)
        u.update(bytes([128]) * u.buffer_size)
        v.update(bytes([128]) * v.buffer_size)
        frame.pts, frame.time_base = pts, time_base
        self.count += 1
        return frame


class ToneTrack(MediaStreamTrack):
    kind = "audio"

    def __init__(self):
        super().__init__()
        rate, samples = 48000, int(48000 * AUDIO_PTIME)
        # 400 Hz fits 20 ms exactly, so one period of samples repeats seamlessly.
        tone = bytearray()
        for i in range(samples):
            value = int(3000 * math.sin(2 * math.pi * 400 * i / rate)).to_bytes(2, "little", signed=True)
            tone += value * 2
        self.tone, self.rate, self.samples = bytes(tone), rate, samples
        self.start, self.timestamp = None, 0

    async def recv(self):
        if self.start is None:
            self.start = time.time()
        else:
            self.timestamp += self.samples
            await asyncio.sleep(max(0, self.start + self.timestamp / self.rate - time.time()))
        frame = AudioFrame(format="s16", layout="stereo", samples=self.samples)
        frame.planes[0].update(self.tone)
        frame.pts, frame.sample_rate = self.timestamp, self.rate
        frame.time_base = fractions.Fraction(1, self.rate)
        return frame


def emit(event, **members):
    print(json.dumps(dict(event=event, **members)), flush=True)


def read_stdin(loop, lines):
    # A daemon thread, so that a blocked read never holds the process at exit.
    for line in sys.stdin:
        loop.call_soon_threadsafe(lines.put_nowait, line)
    loop.call_soon_threadsafe(lines.put_nowait, None)


class Answerer:
    def __init__(self, token, width, height):
        self.token = token
        self.rtt = RttDetect()
        self.counts = {}
        self.pc = RTCPeerConnection(RTCConfiguration(iceServers=[]))
        self.video = MovingBarTrack(width, height)
        self.audio = ToneTrack()
        self.pc.on("connectionstatechange", lambda: emit("state", connection=self.pc.connectionState))
        self.pc.on("datachannel", self.on_channel)

    def on_channel(self, channel):
        emit("channel", label=channel.label)
        channel.on("message", lambda message: self.on_message(channel, message))

    def on_message(self, channel, message):
        arrival = now_ms()
        binary = isinstance(message, bytes)
        data = base64.b64encode(message).decode() if binary else message
        self.counts[channel.label] = self.counts.get(channel.label, 0) + 1
        emit("message", label=channel.label, binary=binary, data=data, arrival=arrival)
        if channel.label == "hb":
            self.on_heartbeat(channel, message, arrival)

    def on_heartbeat(self, channel, message, arrival):
        try:
            heartbeat = json.loads(message)
        except (ValueError, UnicodeDecodeError):
            return
        self.rtt.on_heartbeat(heartbeat, arrival)
        timestamp = heartbeat.get("timestamp") if isinstance(heartbeat, dict) else None
        if isinstance(timestamp, int) and not isinstance(timestamp, bool):
            channel.send(json.dumps({"timestamp": timestamp, "token": self.token}))

    async def answer(self, offer):
        await self.pc.setRemoteDescription(RTCSessionDescription(sdp=offer["sdp"], type=offer["type"]))
        self.pc.addTrack(self.video)
        self.pc.addTrack(self.audio)
        await self.pc.setLocalDescription(await self.pc.createAnswer())
        return self.pc.localDescription.sdp

    async def close(self):
        emit("summary", messages=self.counts, sei=self.rtt.frames)
        await self.pc.close()


async def run(arguments):
    restrict_ice_to(loopback_addresses())
    loop = asyncio.get_running_loop()
    lines = asyncio.Queue()
    threading.Thread(target=read_stdin, args=(loop, lines), daemon=True).start()
    answerer = Answerer(arguments.token, arguments.width, arguments.height)
    use_libx264_only()
    insert_sei_into_h264(answerer.rtt)

    async def serve():
        line = await lines.get()
        if line is None:
            return
        emit("answer", sdp=await answerer.answer(json.loads(line)))
        while await lines.get() is not None:
            pass

    try:
        await asyncio.wait_for(serve(), timeout=arguments.timeout)
    except asyncio.TimeoutError:
        emit("timeout")
    finally:
        await answerer.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--token", default="aiortc-token")
    parser.add_argument("--width", type=int, default=320)
    parser.add_argument("--height", type=int, default=240)
    parser.add_argument("--timeout", type=float, default=60.0)
    asyncio.run(run(parser.parse_args()))


if __name__ == "__main__":
    main()
