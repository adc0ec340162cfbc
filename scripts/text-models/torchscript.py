#!/usr/bin/python3
"""Builds TorchScript versions of the PP-OCRv4 detector and recogniser from their ONNX graphs, for
libtorch (whose oneDNN convolutions run them 1.5 times as fast as OpenCV's dnn per detector tile,
2 to 3 times per line):

  Detector.pt      input [1,3,H,W] float, BGR 0..255, H and W multiples of 32
                   -> [1,1,H,W] text probability per pixel
  Recognizer.pt    input [N,3,48,W] float, BGR 0..255, W a multiple of 8
                   -> (indices int64 [N,W/8], scores float [N,W/8]): best class and its probability per step
  characters.json  JSON array of strings; entry i is class i + 1, class 0 is the CTC blank

Each ONNX node is executed by the torch operation that does the same arithmetic; the module is then
traced, frozen and saved. Pixel normalisation is part of the models, so callers feed raw bytes.
Before saving, the traced models are checked against a plain numpy evaluation of the same graphs.

Usage: torchscript.py DETECTOR.onnx RECOGNIZER.onnx KEYS.txt OUTPUT_DIR
"""
import json
import os
import sys
import zipfile

import numpy as np
import onnx
import torch
import torch.nn.functional as F
from onnx import helper, numpy_helper


def attributes(node):
    return {a.name: helper.get_attribute_value(a) for a in node.attribute}


def graph_constants(graph):
    values = {init.name: numpy_helper.to_array(init) for init in graph.initializer}
    for node in graph.node:
        if node.op_type == "Constant":
            values[node.output[0]] = numpy_helper.to_array(node.attribute[0].t)
    return values


class ShapeValue(list):
    """A shape, or a piece of one, computed from a tensor at run time. Kept as a list of sizes
    rather than a tensor, so that the trace records the sizes it came from and widths stay free."""


def symmetric_padding(pads):
    """ONNX pads are [top, left, bottom, right]; torch pads both sides alike."""
    half = len(pads) // 2
    if list(pads[:half]) != list(pads[half:]):
        raise ValueError("asymmetric padding %s" % list(pads))
    return list(pads[:half])


class Node:
    """An ONNX node as plain values, so that rewrites are list and dict edits."""

    def __init__(self, op, inputs, outputs, attrs=None):
        self.op, self.inputs, self.outputs, self.attrs = op, list(inputs), list(outputs), dict(attrs or {})


class Graph:
    def __init__(self, onnx_graph):
        self.constants = graph_constants(onnx_graph)
        self.nodes = [Node(n.op_type, n.input, n.output, attributes(n)) for n in onnx_graph.node if n.op_type != "Constant"]
        self.input_name = onnx_graph.input[0].name
        self.output_names = [o.name for o in onnx_graph.output]
        self.count = 0

    def constant(self, value, stem):
        self.count += 1
        name = "%s_rewritten_%d" % (stem, self.count)
        self.constants[name] = np.asarray(value, np.float32)
        return name

    def consumers(self):
        readers = {}
        for node in self.nodes:
            for name in node.inputs:
                readers.setdefault(name, []).append(node)
        for name in self.output_names:
            readers.setdefault(name, []).append(None)
        return readers

    def producers(self):
        return {o: n for n in self.nodes for o in n.outputs}

    def per_channel(self, name, channels):
        """A constant that scales or shifts each of `channels` channels ([C,1,1], [1,C,1,1] or a
        scalar), as a vector; None for anything else."""
        value = self.constants.get(name)
        if value is None or value.dtype.kind != "f":
            return None
        if value.size == 1:
            return np.full(channels, value.reshape(-1)[0], np.float32)
        if value.size == channels and value.ndim >= 3 and value.shape[-3] == channels:
            return value.reshape(-1)
        return None

    def scalar(self, name):
        value = self.constants.get(name)
        return float(value.reshape(-1)[0]) if value is not None and value.size == 1 else None


class OnnxGraph(torch.nn.Module):
    """Runs the nodes of a graph (the operations the PP-OCR models use) with torch."""

    def __init__(self, graph):
        super().__init__()
        self.constants = graph.constants
        self.nodes = graph.nodes
        self.input_name = graph.input_name
        self.output_names = graph.output_names
        self.weights = {}
        for name, value in self.constants.items():
            if value.dtype in (np.float32, np.float64) and value.size > 1:
                self.weights[name] = torch.from_numpy(np.ascontiguousarray(value, np.float32))

    def value(self, env, name):
        if name in env:
            return env[name]
        if name in self.weights:
            return self.weights[name]
        constant = self.constants[name]
        if constant.size == 0:
            return None
        if constant.dtype in (np.int32, np.int64):
            return ShapeValue(int(v) for v in np.atleast_1d(constant))
        return float(constant.reshape(-1)[0])

    def forward(self, x):
        env = {self.input_name: x}
        for node in self.nodes:
            inputs = [self.value(env, name) if name else None for name in node.inputs]
            outputs = getattr(self, "op_" + node.op)(inputs, node.attrs)
            if not isinstance(outputs, tuple):
                outputs = (outputs,)
            for name, value in zip(node.outputs, outputs):
                env[name] = value
        return tuple(env[name] for name in self.output_names)

    # Arithmetic; one operand may be a scalar constant.
    def op_Add(self, i, a): return i[0] + i[1]
    def op_Sub(self, i, a): return i[0] - i[1]
    def op_Mul(self, i, a): return i[0] * i[1]
    def op_Div(self, i, a): return i[0] / i[1]
    def op_Pow(self, i, a): return i[0] * i[0] if i[1] == 2.0 else torch.pow(i[0], i[1])
    def op_Sqrt(self, i, a): return torch.sqrt(i[0])
    def op_Relu(self, i, a): return F.relu(i[0])
    def op_Sigmoid(self, i, a): return torch.sigmoid(i[0])
    def op_MatMul(self, i, a):
        if isinstance(i[1], torch.Tensor) and i[1].dim() == 2 and not isinstance(i[0], ShapeValue) and i[0].dim() == 3:
            # By a constant matrix: as a 1x1 convolution over [N,K,T,1], which runs on oneDNN,
            # where a matrix product would go to the plain BLAS.
            weights = i[1].t().contiguous()[:, :, None, None]
            y = self.op_Conv([i[0].permute(0, 2, 1).unsqueeze(-1), weights], {})
            return y.squeeze(-1).permute(0, 2, 1)
        return torch.matmul(i[0], i[1])

    def op_Clip(self, i, a):
        low = i[1] if len(i) > 1 and i[1] is not None else a.get("min")
        high = i[2] if len(i) > 2 and i[2] is not None else a.get("max")
        return torch.clamp(i[0], low, high)

    def op_Affine(self, i, a):
        return torch.addcmul(torch.tensor(a["shift"]), i[0], torch.tensor(a["scale"]))

    def op_HardSwish(self, i, a): return F.hardswish(i[0])
    def op_Silu(self, i, a): return F.silu(i[0])
    def op_DepthToSpace(self, i, a): return F.pixel_shuffle(i[0], a["blocksize"])

    def op_HardSigmoid(self, i, a):
        return torch.clamp(i[0] * a.get("alpha", 0.2) + a.get("beta", 0.5), 0.0, 1.0)

    def op_Softmax(self, i, a):
        axis = a.get("axis", 1)
        if axis not in (-1, i[0].dim() - 1):
            raise ValueError("softmax over an inner axis")  # opset 9 would flatten the trailing axes
        return torch.softmax(i[0], -1)

    def op_Conv(self, i, a):
        # oneDNN's convolution by name: conv2d would pick libtorch's own im2col and plain BLAS for
        # the 1x1 convolutions when run single-threaded (ten times slower), and oneDNN works on
        # channels-last tensors without reordering them.
        return torch.mkldnn_convolution(i[0], i[1], i[2] if len(i) > 2 else None,
                                        symmetric_padding(a.get("pads", [0, 0, 0, 0])), a.get("strides", [1, 1]),
                                        a.get("dilations", [1, 1]), a.get("group", 1))

    def op_ConvTranspose(self, i, a):
        if a.get("output_padding") or a.get("output_shape"):
            raise ValueError("unsupported transposed convolution")
        return F.conv_transpose2d(i[0], i[1], i[2] if len(i) > 2 else None, stride=a.get("strides", [1, 1]),
                                  padding=symmetric_padding(a.get("pads", [0, 0, 0, 0])),
                                  groups=a.get("group", 1), dilation=a.get("dilations", [1, 1]))

    def op_BatchNormalization(self, i, a):
        return F.batch_norm(i[0], i[3], i[4], i[1], i[2], False, 0.0, a.get("epsilon", 1e-5))

    def op_GlobalAveragePool(self, i, a):
        return torch.mean(i[0], dim=[2, 3], keepdim=True)

    def op_AveragePool(self, i, a):
        return F.avg_pool2d(i[0], a["kernel_shape"], a.get("strides", a["kernel_shape"]),
                            symmetric_padding(a.get("pads", [0, 0, 0, 0])),
                            count_include_pad=bool(a.get("count_include_pad", 0)))

    def op_Resize(self, i, a):
        scales = [float(s) for s in i[2].tolist()]
        if a.get("mode", b"nearest") != b"nearest" or scales[:2] != [1.0, 1.0] or \
                any(s != int(s) for s in scales[2:]):
            raise ValueError("unsupported resize")
        # Whole-number nearest enlargement with floor rounding repeats each pixel.
        return F.interpolate(i[0], scale_factor=scales[2:], mode="nearest")

    def op_ReduceMean(self, i, a):
        return torch.mean(i[0], dim=list(a["axes"]), keepdim=bool(a.get("keepdims", 1)))

    def op_Concat(self, i, a):
        if all(isinstance(v, ShapeValue) for v in i):
            return ShapeValue(s for v in i for s in v)
        return torch.cat(i, a["axis"])

    def op_Transpose(self, i, a): return i[0].permute(list(a["perm"]))

    def op_Squeeze(self, i, a):
        x = i[0]
        for axis in sorted(a["axes"], reverse=True):
            x = x.squeeze(axis)
        return x

    def op_Shape(self, i, a): return ShapeValue(i[0].shape)
    def op_Cast(self, i, a):
        # Only shape arithmetic is cast in these graphs.
        if isinstance(i[0], float):
            return ShapeValue([int(i[0])])
        if not isinstance(i[0], ShapeValue):
            raise ValueError("cast of a tensor")
        return i[0]

    def op_Slice(self, i, a):
        if isinstance(i[0], ShapeValue):
            (start,), (end,) = a["starts"], a["ends"]
            return ShapeValue(i[0][start:end])
        x = i[0]
        for axis, start, end in zip(a["axes"], a["starts"], a["ends"]):
            length = x.shape[axis]
            start, end = max(start + length if start < 0 else start, 0), min(end + length if end < 0 else end, length)
            x = x.narrow(axis, start, end - start)
        return x

    def op_Reshape(self, i, a):
        # ONNX: 0 keeps the input's size on that axis, -1 is inferred.
        target = [i[0].shape[k] if isinstance(s, int) and s == 0 else s for k, s in enumerate(i[1])]
        return i[0].reshape(target)


# --- Rewrites that keep the arithmetic (up to float rounding) with fewer passes over memory: every
# elementwise node is a pass of its own, and in these models most are scalings that a convolution
# can absorb.

def until_unchanged(rewrite):
    """Runs `rewrite(graph, readers, producers)`, which changes at most one place and says whether
    it did, until it finds nothing more to change."""
    def run(graph):
        while rewrite(graph, graph.consumers(), graph.producers()):
            pass
    return run


def conv_weights(graph, conv):
    w = graph.constants[conv.inputs[1]]
    return w, graph.constants[conv.inputs[2]] if len(conv.inputs) > 2 else np.zeros(w.shape[0], np.float32)


@until_unchanged
def fold_into_convolutions(graph, readers, producers):
    """A BatchNormalization, or a Mul or Add by a scalar, that is the only reader of a convolution's
    output becomes part of that convolution's weights and bias."""
    for node in graph.nodes:
        conv = producers.get(node.inputs[0]) if node.inputs else None
        if node.op in ("Mul", "Add") and conv is None:
            conv = producers.get(node.inputs[1])
        if conv is None or conv.op != "Conv" or len(readers[conv.outputs[0]]) != 1:
            continue
        w, b = conv_weights(graph, conv)
        if node.op == "BatchNormalization":
            scale, bias, mean, var = (graph.constants[n] for n in node.inputs[1:5])
            factor = scale / np.sqrt(var + node.attrs.get("epsilon", 1e-5))
            w, b = w * factor.reshape(-1, 1, 1, 1), (b - mean) * factor + bias
        elif node.op in ("Mul", "Add"):
            other = [n for n in node.inputs if n != conv.outputs[0]]
            value = graph.per_channel(other[0], w.shape[0]) if len(other) == 1 else None
            if value is None:
                continue
            w, b = (w * value.reshape(-1, 1, 1, 1), b * value) if node.op == "Mul" else (w, b + value)
        else:
            continue
        conv.inputs[1:] = [graph.constant(w, "weights"), graph.constant(b, "bias")]
        conv.outputs[0] = node.outputs[0]
        graph.nodes.remove(node)
        return True
    return False


def unpadded(conv):
    return not any(conv.attrs.get("pads", [0]))


@until_unchanged
def fold_scaling_into_readers(graph, readers, producers):
    """x * s + c (either step may be missing) read only by convolutions becomes part of their
    weights and bias. With zero padding the border would see c instead of 0, so c moves only into
    unpadded convolutions; s moves into any (a scaled zero stays zero)."""
    for last in graph.nodes:
        if last.op not in ("Mul", "Add"):
            continue
        values = [graph.scalar(n) for n in last.inputs]
        if values.count(None) != 1:
            continue
        steps = [last]
        source = last.inputs[values.index(None)]
        first = producers.get(source)
        if last.op == "Add" and first is not None and first.op == "Mul" and len(readers[source]) == 1:
            first_values = [graph.scalar(n) for n in first.inputs]
            if first_values.count(None) == 1:
                steps.insert(0, first)
                source = first.inputs[first_values.index(None)]
        scale = next((graph.scalar(n) for s in steps if s.op == "Mul" for n in s.inputs if graph.scalar(n) is not None), 1.0)
        shift = next((graph.scalar(n) for s in steps if s.op == "Add" for n in s.inputs if graph.scalar(n) is not None), 0.0)
        convs = readers[last.outputs[0]]
        if not all(c is not None and c.op == "Conv" and c.inputs[0] == last.outputs[0] for c in convs):
            continue
        if shift != 0.0 and not all(unpadded(c) for c in convs):
            continue
        for conv in convs:
            w, b = conv_weights(graph, conv)
            conv.inputs[:] = [source, graph.constant(w * scale, "weights"),
                              graph.constant(b + shift * w.sum(axis=(1, 2, 3)), "bias")]
        for step in steps:
            graph.nodes.remove(step)
        return True
    return False


@until_unchanged
def channel_steps_before_rearrangement(graph, readers, producers):
    """Per-channel steps after a DepthToSpace (adding a channel's constant, batch normalisation, an
    activation) move before it, their constants repeated per block, where the convolution that
    feeds it can absorb them."""
    for node in graph.nodes:
        d2s = producers.get(node.inputs[0]) if node.inputs else None
        if d2s is None or d2s.op != "DepthToSpace" or len(readers[d2s.outputs[0]]) != 1:
            continue
        block = d2s.attrs["blocksize"] ** 2
        conv = producers.get(d2s.inputs[0])
        channels = graph.constants[conv.inputs[1]].shape[0] // block if conv is not None and conv.op == "Conv" else None
        if node.op in ("Relu", "Sigmoid"):
            moved = Node(node.op, [d2s.inputs[0]], [node.outputs[0] + "_blocks"])
        elif node.op == "Add" and channels and graph.per_channel(node.inputs[1], channels) is not None:
            repeated = np.repeat(graph.per_channel(node.inputs[1], channels), block).reshape(1, -1, 1, 1)
            moved = Node("Add", [d2s.inputs[0], graph.constant(repeated, "shift")], [node.outputs[0] + "_blocks"])
        elif node.op == "BatchNormalization":
            moved = Node(node.op, [d2s.inputs[0]] + [graph.constant(np.repeat(graph.constants[n], block), "norm")
                                                    for n in node.inputs[1:5]],
                         [node.outputs[0] + "_blocks"], node.attrs)
        else:
            continue
        at = graph.nodes.index(d2s)
        d2s.inputs[0] = moved.outputs[0]
        d2s.outputs[0] = node.outputs[0]
        graph.nodes.remove(node)
        graph.nodes.insert(at, moved)
        return True
    return False


def gates_with_residual(graph):
    """x + x * g (a channel attention added to its input) is x * (g + 1): one pass fewer over x."""
    readers, producers = graph.consumers(), graph.producers()
    for node in list(graph.nodes):
        if node.op != "Add":
            continue
        for k in (0, 1):
            product = producers.get(node.inputs[k])
            x = node.inputs[1 - k]
            if product is None or product.op != "Mul" or x not in product.inputs or len(readers[product.outputs[0]]) != 1:
                continue
            gate = [n for n in product.inputs if n != x]
            if len(gate) != 1:
                continue
            plus_one = gate[0] + "_plus_one"
            at = graph.nodes.index(product)
            graph.nodes[at] = Node("Add", [gate[0], graph.constant(1.0, "one")], [plus_one])
            graph.nodes[graph.nodes.index(node)] = Node("Mul", [x, plus_one], node.outputs)
            break


def affine_steps(graph):
    """x * s + c with scalar s and c becomes one pass."""
    readers, producers = graph.consumers(), graph.producers()
    for node in list(graph.nodes):
        if node.op != "Add" or graph.scalar(node.inputs[1]) is None:
            continue
        product = producers.get(node.inputs[0])
        if product is None or product.op != "Mul" or len(readers[product.outputs[0]]) != 1:
            continue
        scales = [graph.scalar(n) for n in product.inputs]
        if scales.count(None) != 1:
            continue
        x = product.inputs[scales.index(None)]
        graph.nodes.remove(product)
        graph.nodes[graph.nodes.index(node)] = Node(
            "Affine", [x], node.outputs, {"scale": next(v for v in scales if v is not None),
                                           "shift": graph.scalar(node.inputs[1])})


def fuse_activations(graph):
    """x * clip(x + 3, 0, 6) / 6 becomes one HardSwish, x * sigmoid(x) one Silu (SiLU)."""
    readers, producers = graph.consumers(), graph.producers()
    replaced = []
    for node in graph.nodes:
        if node.op == "Div" and graph.scalar(node.inputs[1]) == 6.0:
            product = producers.get(node.inputs[0])
            if product is None or product.op != "Mul":
                continue
            clip = next((producers.get(n) for n in product.inputs if producers.get(n) is not None
                         and producers[n].op == "Clip"), None)
            if clip is None:
                continue
            bounds = [graph.scalar(n) for n in clip.inputs[1:3]] if len(clip.inputs) >= 3 else \
                [clip.attrs.get("min"), clip.attrs.get("max")]
            shift = producers.get(clip.inputs[0])
            if bounds != [0.0, 6.0] or shift is None or shift.op != "Add" or graph.scalar(shift.inputs[1]) != 3.0:
                continue
            x = shift.inputs[0]
            if sorted(product.inputs) != sorted([x, clip.outputs[0]]):
                continue
            inner = [shift, clip, product]
            if any(len(readers[n.outputs[0]]) != 1 for n in inner):
                continue
            replaced.append((inner + [node], Node("HardSwish", [x], node.outputs)))
        elif node.op == "Mul" and len(node.inputs) == 2:
            sigmoid = next((producers.get(n) for n in node.inputs if producers.get(n) is not None
                            and producers[n].op == "Sigmoid"), None)
            if sigmoid is None:
                continue
            x = [n for n in node.inputs if n != sigmoid.outputs[0]][0]
            gate = producers.get(sigmoid.inputs[0])
            inner = [sigmoid]
            if gate is not None and gate.op == "Mul" and graph.scalar(gate.inputs[1]) == 1.0 and gate.inputs[0] == x:
                inner.insert(0, gate)
            elif sigmoid.inputs[0] != x:
                continue
            if any(len(readers[n.outputs[0]]) != 1 for n in inner):
                continue
            replaced.append((inner + [node], Node("Silu", [x], node.outputs)))
    for old, new in replaced:
        graph.nodes[graph.nodes.index(old[-1])] = new
        for n in old[:-1]:
            graph.nodes.remove(n)


def upsampling_as_convolution(graph):
    """A transposed convolution whose kernel equals its stride, unpadded, paints one block per input
    pixel: a 1x1 convolution to all the block's values, then a rearrangement of channels into space."""
    for k, node in enumerate(list(graph.nodes)):
        if node.op != "ConvTranspose":
            continue
        w = graph.constants[node.inputs[1]]
        (sy, sx), group = node.attrs.get("strides", [1, 1]), node.attrs.get("group", 1)
        if list(w.shape[2:]) != [sy, sx] or sy != sx or group != 1 or any(node.attrs.get("pads", [0])) \
                or node.attrs.get("output_padding"):
            continue
        c_in, c_out = w.shape[0], w.shape[1]
        # DepthToSpace (column-row-depth order) reads channel o * s * s + dy * s + dx.
        weights = w.transpose(1, 2, 3, 0).reshape(c_out * sy * sx, c_in, 1, 1)
        bias = np.repeat(graph.constants[node.inputs[2]], sy * sx) if len(node.inputs) > 2 else \
            np.zeros(c_out * sy * sx, np.float32)
        blocks = node.outputs[0] + "_blocks"
        at = graph.nodes.index(node)
        graph.nodes[at:at + 1] = [
            Node("Conv", [node.inputs[0], graph.constant(weights, "weights"), graph.constant(bias, "bias")], [blocks],
                 {"kernel_shape": [1, 1]}),
            Node("DepthToSpace", [blocks], node.outputs, {"blocksize": sy, "mode": b"CRD"}),
        ]


def simplified(onnx_graph):
    graph = Graph(onnx_graph)
    upsampling_as_convolution(graph)
    fuse_activations(graph)
    fold_into_convolutions(graph)
    fold_scaling_into_readers(graph)
    channel_steps_before_rearrangement(graph)
    fold_into_convolutions(graph)
    gates_with_residual(graph)
    affine_steps(graph)
    return graph


class Detector(torch.nn.Module):
    def __init__(self, graph):
        super().__init__()
        self.graph = OnnxGraph(simplified(graph))
        # PaddleOCR's detector normalises with ImageNet statistics, in BGR order.
        mean, std = np.array([0.485, 0.456, 0.406]), np.array([0.229, 0.224, 0.225])
        self.register_buffer("scale", torch.tensor(1.0 / (255.0 * std), dtype=torch.float32).reshape(1, 3, 1, 1))
        self.register_buffer("shift", torch.tensor(-mean / std, dtype=torch.float32).reshape(1, 3, 1, 1))

    def forward(self, image):
        image = image.contiguous(memory_format=torch.channels_last)
        return self.graph(image * self.scale + self.shift)[0]


class Recognizer(torch.nn.Module):
    def __init__(self, graph):
        super().__init__()
        self.graph = OnnxGraph(simplified(graph))

    def forward(self, image):
        # The recogniser's input is (x / 255 - 0.5) / 0.5.
        image = image.contiguous(memory_format=torch.channels_last)
        probabilities = self.graph(image * (2.0 / 255.0) - 1.0)[0]
        scores, indices = torch.max(probabilities, dim=-1)
        return indices, scores


def traced(module, example):
    with torch.no_grad():
        script = torch.jit.trace(module, example, check_trace=False)
        return torch.jit.freeze(script.eval())


# --- Reference: the same graphs evaluated by numpy, independent of the torch operations above, so
# that a wrong translation (padding, layout, an attribute read wrongly) shows as a difference.

def numpy_conv(x, w, b, strides, pads, group, dilations=(1, 1)):
    if list(dilations) != [1, 1]:
        raise ValueError("dilated convolution")
    n, c, h, width = x.shape
    x = np.pad(x, ((0, 0), (0, 0), (pads[0], pads[2]), (pads[1], pads[3])))
    out_c, per_group, kh, kw = w.shape
    oh = (x.shape[2] - kh) // strides[0] + 1
    ow = (x.shape[3] - kw) // strides[1] + 1
    out = np.zeros((n, out_c, oh, ow), np.float64)
    group_out = out_c // group
    for g in range(group):
        xs = x[:, g * per_group:(g + 1) * per_group]
        ws = w[g * group_out:(g + 1) * group_out]
        for dy in range(kh):
            for dx in range(kw):
                window = xs[:, :, dy:dy + strides[0] * oh:strides[0], dx:dx + strides[1] * ow:strides[1]]
                out[:, g * group_out:(g + 1) * group_out] += np.einsum("nchw,oc->nohw", window, ws[:, :, dy, dx])
    if b is not None:
        out += b.reshape(1, -1, 1, 1)
    return out


def numpy_evaluate(graph, x):
    values = {k: v.astype(np.float64) if v.dtype == np.float32 else v for k, v in graph_constants(graph).items()}
    values[graph.input[0].name] = x.astype(np.float64)
    for node in graph.node:
        if node.op_type == "Constant":
            continue
        a = attributes(node)
        i = [values[name] if name else None for name in node.input]
        op = node.op_type
        if op in ("Add", "Sub", "Mul", "Div"):
            r = {"Add": np.add, "Sub": np.subtract, "Mul": np.multiply, "Div": np.divide}[op](i[0], i[1])
        elif op == "Pow": r = np.power(i[0], i[1])
        elif op == "Sqrt": r = np.sqrt(i[0])
        elif op == "Relu": r = np.maximum(i[0], 0)
        elif op == "Sigmoid": r = 1 / (1 + np.exp(-i[0]))
        elif op == "MatMul": r = np.matmul(i[0], i[1])
        elif op == "Clip":
            low = i[1] if len(i) > 1 and i[1] is not None else a.get("min", -np.inf)
            high = i[2] if len(i) > 2 and i[2] is not None else a.get("max", np.inf)
            r = np.clip(i[0], low, high)
        elif op == "HardSigmoid": r = np.clip(i[0] * a["alpha"] + a["beta"], 0, 1)
        elif op == "Softmax":
            e = np.exp(i[0] - i[0].max(axis=-1, keepdims=True))
            r = e / e.sum(axis=-1, keepdims=True)
        elif op == "Conv":
            r = numpy_conv(i[0], i[1], i[2] if len(i) > 2 else None, a["strides"], a["pads"], a["group"], a["dilations"])
        elif op == "ConvTranspose":
            # Stride-sized kernels without padding: each input pixel paints its own block.
            w, (sh, sw) = i[1], a["strides"]
            if list(w.shape[2:]) != [sh, sw] or any(a["pads"]) or a["group"] != 1:
                raise ValueError("unsupported transposed convolution")
            n, c, h, width = i[0].shape
            r = np.einsum("nchw,coyx->nohywx", i[0], w).reshape(n, w.shape[1], h * sh, width * sw)
            if len(i) > 2:
                r = r + i[2].reshape(1, -1, 1, 1)
        elif op == "BatchNormalization":
            scale, bias, mean, var = (v.reshape(1, -1, 1, 1) for v in i[1:5])
            r = (i[0] - mean) / np.sqrt(var + a["epsilon"]) * scale + bias
        elif op == "GlobalAveragePool": r = i[0].mean(axis=(2, 3), keepdims=True)
        elif op == "AveragePool":
            (kh, kw), (sh, sw) = a["kernel_shape"], a["strides"]
            n, c, h, width = i[0].shape
            oh, ow = (h - kh) // sh + 1, (width - kw) // sw + 1
            r = sum(i[0][:, :, dy:dy + sh * oh:sh, dx:dx + sw * ow:sw] for dy in range(kh) for dx in range(kw)) / (kh * kw)
        elif op == "Resize":
            sy, sx = (int(s) for s in i[2][2:])
            r = i[0].repeat(sy, axis=2).repeat(sx, axis=3)
        elif op == "ReduceMean": r = i[0].mean(axis=tuple(a["axes"]), keepdims=bool(a.get("keepdims", 1)))
        elif op == "Concat": r = np.concatenate(i, axis=a["axis"])
        elif op == "Transpose": r = np.transpose(i[0], a["perm"])
        elif op == "Squeeze": r = np.squeeze(i[0], axis=tuple(a["axes"]))
        elif op == "Shape": r = np.asarray(i[0].shape, np.int64)
        elif op == "Cast": r = i[0].astype(np.int64) if i[0].dtype.kind in "iu" else i[0]
        elif op == "Slice":
            r = i[0]
            for axis, start, end in zip(a["axes"], a["starts"], a["ends"]):
                r = np.take(r, range(*slice(start, end).indices(r.shape[axis])), axis=axis)
        elif op == "Reshape":
            target = [r_ if r_ != 0 else i[0].shape[k] for k, r_ in enumerate(i[1].astype(np.int64).tolist())]
            r = i[0].reshape(target)
        else:
            raise ValueError("no reference for %s" % op)
        values[node.output[0]] = r
    return values[graph.output[0].name]


def text_like(count, height, width, seed):
    """Lines of made-up 5 x 7 glyphs, doubled, dark on light: the detector finds text in them and
    the recogniser reads something, so that every layer produces values that matter."""
    rng = np.random.default_rng(seed)
    glyphs = rng.random((40, 7, 5)) < 0.45
    image = np.full((count, height, width), 240.0, np.float32)
    for page in image:
        for y in range(max(0, (height - 14) // 2) if height < 40 else 6, height - 15, 24):
            x = 6
            while x + 16 < width:
                if rng.random() < 0.15:
                    x += 8
                    continue
                glyph = glyphs[rng.integers(len(glyphs))].repeat(2, 0).repeat(2, 1)
                page[y:y + 14, x:x + 10][glyph] = 20.0
                x += 12
    return np.repeat(image[:, None], 3, axis=1)


def check_detector(graph, model, height=96, width=128):
    image = text_like(1, height, width, 1)
    mean, std = np.array([0.485, 0.456, 0.406]), np.array([0.229, 0.224, 0.225])
    expected = numpy_evaluate(graph, (image / 255.0 - mean.reshape(1, 3, 1, 1)) / std.reshape(1, 3, 1, 1))
    with torch.no_grad():
        got = model(torch.from_numpy(image)).numpy()
    difference = np.abs(got - expected).max()
    print("detector %dx%d: text on %.0f%% of the map, largest difference from the reference %.2e"
          % (width, height, 100 * (expected > 0.3).mean(), difference))
    if got.shape != expected.shape or difference > 1e-3 or (expected > 0.3).mean() < 0.05:
        raise SystemExit("the detector's translation differs from its graph")


def check_recognizer(graph, model, widths=(320, 96)):
    for width in widths:
        image = text_like(2, 48, width, width)
        image[1] = 255.0 - image[1]  # light on dark
        expected = numpy_evaluate(graph, image / 127.5 - 1.0)
        with torch.no_grad():
            indices, scores = model(torch.from_numpy(image))
        best, score = expected.argmax(-1), expected.max(-1)
        # A step whose two best classes are within rounding of each other may legitimately differ.
        top2 = np.sort(expected, axis=-1)[..., -2:]
        clear = top2[..., 1] - top2[..., 0] > 1e-4
        mismatched = int(((indices.numpy() != best) & clear).sum())
        difference = np.abs(scores.numpy() - score).max()
        print("recogniser width %d: %d of %d steps not blank, %d clear steps differ, largest score difference %.2e"
              % (width, int((best != 0).sum()), best.size, mismatched, difference))
        if indices.shape != best.shape or mismatched or difference > 1e-3 or not (best != 0).any():
            raise SystemExit("the recogniser's translation differs from its graph")


def save_reproducibly(module, path):
    """TorchScript's own archive, without the debug records (they name the paths of this script and
    of torch's sources, which differ between machines); entries keep their order and fixed times."""
    scratch = path + ".unstripped"
    module.save(scratch)
    with zipfile.ZipFile(scratch) as source, zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as target:
        for info in source.infolist():
            if not info.filename.endswith(".debug_pkl"):
                target.writestr(zipfile.ZipInfo(info.filename, date_time=(1980, 1, 1, 0, 0, 0)), source.read(info))
    os.remove(scratch)


def write_characters(keys_path, out_path):
    with open(keys_path, encoding="utf-8") as f:
        keys = [line.rstrip("\r\n") for line in f]
    while keys and keys[-1] == "":
        keys.pop()
    keys.append(" ")  # the model's last class is a space
    with open(out_path, "w", encoding="utf-8") as f:
        json.dump(keys, f, ensure_ascii=False, separators=(",", ":"))
        f.write("\n")


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    detector_path, recognizer_path, keys_path, out = sys.argv[1:]
    os.makedirs(out, exist_ok=True)
    torch.set_num_threads(1)

    detector_graph = onnx.load(detector_path).graph
    detector = traced(Detector(detector_graph).eval(), torch.full((1, 3, 64, 96), 200.0))
    check_detector(detector_graph, detector)
    save_reproducibly(detector, os.path.join(out, "Detector.pt"))

    recognizer_graph = onnx.load(recognizer_path).graph
    recognizer = traced(Recognizer(recognizer_graph).eval(), torch.full((2, 3, 48, 160), 200.0))
    check_recognizer(recognizer_graph, recognizer)
    save_reproducibly(recognizer, os.path.join(out, "Recognizer.pt"))

    write_characters(keys_path, os.path.join(out, "characters.json"))


if __name__ == "__main__":
    main()
