#!/usr/bin/env python3
"""The WAV corpus of the audio tests, made fresh at test time: make_wavs.py OUTDIR.

manifest.txt in OUTDIR names each file: "NAME ok CHANNELS RATE SOX [PY]" for one the reader must
accept, "NAME refused" for one it must refuse. SOX says how sox's reading judges ours: "exact"
(its 32-bit values over 2^31 are the samples), "near" (it rounds floats its own way: within one
16-bit step) or "none" (it reads the layout otherwise). PY is NAME.f64, the sample values in
-1..1 (floats clipped) written from the numbers that went into the file.
"""
import os
import random
import struct
import subprocess
import sys
import wave

out = sys.argv[1]
os.makedirs(out, exist_ok=True)
manifest = []
rng = random.Random(20240611)


def path(name):
    return os.path.join(out, name)


def chunk(cid, payload, pad=True):
    data = cid + struct.pack('<I', len(payload)) + payload
    if pad and len(payload) % 2:
        data += b'\0'
    return data


def riff(*chunks):
    body = b'WAVE' + b''.join(chunks)
    return b'RIFF' + struct.pack('<I', len(body)) + body


def fmt(tag, channels, rate, bits, extra=b''):
    align = channels * (bits // 8)
    return chunk(b'fmt ', struct.pack('<HHIIHH', tag, channels, rate, rate * align, align, bits) + extra)


def extensible(channels, rate, bits, sub_format, cb_size=22, size=None):
    """An extensible fmt chunk; `size` cuts or pads it to a given chunk size."""
    align = channels * (bits // 8)
    body = struct.pack('<HHIIHH', 0xFFFE, channels, rate, rate * align, align, bits)
    body += struct.pack('<HHI', cb_size, bits, (1 << channels) - 1)
    body += struct.pack('<H', sub_format) + b'\x00\x00\x00\x00\x10\x00\x80\x00\x00\xaa\x00\x38\x9b\x71'
    if size is not None:
        body = (body + bytes(64))[:size]
    return chunk(b'fmt ', body)


def write(name, data):
    with open(path(name), 'wb') as f:
        f.write(data)


def accept(name, channels, rate, sox, values=None):
    line = '%s ok %d %d %s' % (name, channels, rate, sox)
    if values is not None:
        with open(path(name[:-4] + '.f64'), 'wb') as f:
            f.write(struct.pack('<%dd' % len(values), *values))
        line += ' ' + name[:-4] + '.f64'
    manifest.append(line)


def refuse(name, data=None):
    if data is not None:
        write(name, data)
    manifest.append('%s refused' % name)


def sox(*args):
    subprocess.run(['sox', '-D', '-V1'] + list(args), check=True)


# Integer PCM through Python's own writer: every 8-bit value, the 16-bit extremes, random
# values of 24 and 32 bits, and three channels.
def pcm(name, width, channels, rate, values):
    with wave.open(path(name), 'wb') as w:
        w.setnchannels(channels)
        w.setsampwidth(width)
        w.setframerate(rate)
        if width == 1:
            w.writeframes(bytes(v + 128 for v in values))
        elif width == 3:
            w.writeframes(b''.join(struct.pack('<i', v)[:3] for v in values))
        else:
            w.writeframes(struct.pack('<%d%s' % (len(values), 'h' if width == 2 else 'i'), *values))
    scale = float(1 << (8 * width - 1))
    accept(name, channels, rate, 'exact', [v / scale for v in values])


pcm('pcm8_mono.wav', 1, 1, 8000, list(range(-128, 128)) + [rng.randrange(-128, 128) for _ in range(101)])
pcm('pcm16_stereo.wav', 2, 2, 44100,
    [-32768, 32767, 0, -1, 1, 16384, -16384, 32766] + [rng.randrange(-32768, 32768) for _ in range(1000)])
pcm('pcm24_mono.wav', 3, 1, 48000,
    [-(1 << 23), (1 << 23) - 1, 0, 255, -256] + [rng.randrange(-(1 << 23), 1 << 23) for _ in range(777)])
pcm('pcm32_stereo.wav', 4, 2, 96000,
    [-(1 << 31), (1 << 31) - 1, 0, 65535, -65536, 32767 << 16, 1] + [rng.randrange(-(1 << 31), 1 << 31) for _ in range(601)])
pcm('pcm16_3ch.wav', 2, 3, 22050, [rng.randrange(-32768, 32768) for _ in range(3 * 333)])


# IEEE float, written by hand: values past full scale, exact ends, tiny values, values whose
# scaled form sits on a rounding boundary.
def floats(name, bits, channels, rate, values, fmt_chunk=None, sox_judge='near'):
    code = 'f' if bits == 32 else 'd'
    data = struct.pack('<%d%s' % (len(values), code), *values)
    if bits == 32:
        values = list(struct.unpack('<%df' % len(values), data))  # what the file really holds
    write(name, riff(fmt_chunk or fmt(3, channels, rate, bits), chunk(b'data', data)))
    accept(name, channels, rate, sox_judge, [max(-1.0, min(1.0, v)) for v in values])


boundary = [0.5 / 32767, 1.5 / 32767, -0.5 / 32768, -1.5 / 32768, 100.5 / 32767]
float_values = [1.0, -1.0, 1.5, -1.5, 0.0, -0.0, 1e-9, -1e-9, 0.999999, -0.999999] + boundary
float_values += [rng.uniform(-1.2, 1.2) for _ in range(985)]
floats('float32_stereo.wav', 32, 2, 44100, float_values)
floats('float64_mono.wav', 64, 1, 32000, float_values[:999])
floats('float32_ext_3ch.wav', 32, 3, 16000, [rng.uniform(-1, 1) for _ in range(3 * 200)],
       fmt_chunk=extensible(3, 16000, 32, 3))
floats('float64_ext_stereo.wav', 64, 2, 8000, [rng.uniform(-1, 1) for _ in range(2 * 150)],
       fmt_chunk=extensible(2, 8000, 64, 3))

# Extensible integer headers as sox writes them (it does so past 16 bits or 2 channels),
# and other integer files of sox's making, judged by sox alone.
sox('-n', '-r', '48000', '-b', '24', '-c', '4', path('sox_ext_pcm24_4ch.wav'), 'synth', '0.02', 'sine', '440',
    'sine', '1000', 'square', '300', 'noise')
accept('sox_ext_pcm24_4ch.wav', 4, 48000, 'exact')
sox('-n', '-r', '11025', '-b', '32', '-e', 'signed-integer', '-c', '6', path('sox_ext_pcm32_6ch.wav'), 'synth',
    '0.01', 'sine', '100', 'sine', '200', 'saw', '300', 'noise', 'sine', '500', 'square', '600')
accept('sox_ext_pcm32_6ch.wav', 6, 11025, 'exact')
sox('-n', '-r', '22050', '-b', '16', '-c', '2', path('sox_pcm16_stereo.wav'), 'synth', '0.05', 'sine', '300',
    'sine', '500', 'vol', '0.9')
accept('sox_pcm16_stereo.wav', 2, 22050, 'exact')
sox('-n', '-r', '8000', '-b', '8', '-e', 'unsigned-integer', '-c', '1', path('sox_pcm8_mono.wav'), 'synth',
    '0.05', 'noise')
accept('sox_pcm8_mono.wav', 1, 8000, 'exact')

# Chunk layouts. Each value list is what the file holds, scaled to -1..1.
tone16 = [rng.randrange(-32768, 32768) for _ in range(2 * 64)]
data16 = struct.pack('<%dh' % len(tone16), *tone16)
values16 = [v / 32768.0 for v in tone16]
# An odd-sized chunk before the data is skipped with its pad byte.
write('odd_chunk_before_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'LIST', b'abc'), chunk(b'junk', b'x'),
                                        chunk(b'data', data16)))
accept('odd_chunk_before_data.wav', 2, 44100, 'exact', values16)
# Odd-sized 8-bit data, its pad byte, and a chunk after it.
odd8 = [rng.randrange(-128, 128) for _ in range(77)]
write('odd_data_pad.wav', riff(fmt(1, 1, 8000, 8), chunk(b'data', bytes(v + 128 for v in odd8)),
                               chunk(b'LIST', b'after')))
accept('odd_data_pad.wav', 1, 8000, 'exact', [v / 128.0 for v in odd8])
# A later fmt replaces an earlier one: the data is 16-bit stereo, not 8-bit mono.
write('fmt_replaced.wav', riff(fmt(1, 1, 8000, 8), chunk(b'LIST', b'x' * 5), fmt(1, 2, 44100, 16),
                               chunk(b'data', data16)))
accept('fmt_replaced.wav', 2, 44100, 'none', values16)
# Two data chunks: the first counts.
second = struct.pack('<4h', 1, 2, 3, 4)
write('two_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', data16), chunk(b'data', second)))
accept('two_data.wav', 2, 44100, 'exact', values16)
# Data before fmt.
write('data_before_fmt.wav', riff(chunk(b'data', data16), fmt(1, 2, 44100, 16)))
accept('data_before_fmt.wav', 2, 44100, 'none', values16)
# A partial frame at the end is dropped: 7 bytes of 16-bit stereo hold one frame.
write('partial_frame.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', struct.pack('<hh', 1000, -1000) + b'\x01\x02\x03')))
accept('partial_frame.wav', 2, 44100, 'exact', [1000 / 32768.0, -1000 / 32768.0])
# A fmt chunk longer than 16 bytes with the plain tag.
write('fmt18.wav', riff(chunk(b'fmt ', struct.pack('<HHIIHHH', 1, 2, 44100, 176400, 4, 16, 0)), chunk(b'data', data16)))
accept('fmt18.wav', 2, 44100, 'exact', values16)

# Layouts that must fail; files cut inside their data are every prefix in wav_test.cpp.
refuse('truncated_after_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', data16), chunk(b'LIST', b'abcdef'))[:-3])
refuse('pcm12.wav', riff(fmt(1, 1, 8000, 12), chunk(b'data', bytes(64))))
refuse('pcm64.wav', riff(fmt(1, 1, 8000, 64), chunk(b'data', bytes(64))))
refuse('float16.wav', riff(fmt(3, 1, 8000, 16), chunk(b'data', bytes(64))))
refuse('ext_size18.wav', riff(extensible(2, 44100, 16, 1, size=18), chunk(b'data', data16)))
refuse('ext_size38.wav', riff(extensible(2, 44100, 16, 1, size=38), chunk(b'data', data16)))
refuse('ext_cbsize21.wav', riff(extensible(2, 44100, 16, 1, cb_size=21), chunk(b'data', data16)))
refuse('ext_alaw.wav', riff(extensible(2, 44100, 16, 6), chunk(b'data', data16)))
refuse('fmt_short.wav', riff(chunk(b'fmt ', struct.pack('<HHIIH', 1, 2, 44100, 176400, 4)), chunk(b'data', data16)))
refuse('no_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'LIST', b'ab')))
refuse('empty_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', b'')))
refuse('empty_first_data.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', b''), chunk(b'data', data16)))
refuse('no_fmt.wav', riff(chunk(b'data', data16)))
refuse('zero_channels.wav', riff(fmt(1, 0, 44100, 16), chunk(b'data', data16)))
refuse('zero_rate.wav', riff(fmt(1, 2, 0, 16), chunk(b'data', data16)))
refuse('short_of_a_frame.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', b'\1\2\3')))
refuse('later_fmt_bad.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', data16), fmt(1, 2, 44100, 12)))
refuse('not_riff.wav', b'RIFX' + riff(fmt(1, 2, 44100, 16), chunk(b'data', data16))[4:])
refuse('not_wave.wav', riff(fmt(1, 2, 44100, 16), chunk(b'data', data16)).replace(b'WAVE', b'AVI ', 1))
refuse('eleven_bytes.wav', riff()[:11])
refuse('header_only.wav', riff())
sox('-n', '-r', '8000', '-e', 'a-law', '-c', '1', path('sox_alaw.wav'), 'synth', '0.02', 'sine', '440')
refuse('sox_alaw.wav')
sox('-n', '-r', '8000', '-e', 'ima-adpcm', '-c', '1', path('sox_adpcm.wav'), 'synth', '0.02', 'sine', '440')
refuse('sox_adpcm.wav')

with open(path('manifest.txt'), 'w') as f:
    f.write('\n'.join(manifest) + '\n')
