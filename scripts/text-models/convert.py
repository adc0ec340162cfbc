#!/usr/bin/python3
"""Rewrites the PP-OCRv4 ONNX detector and recogniser so that OpenCV 4.6's dnn module loads them,
and gives both the contract the text reader expects:

  Detector.onnx    input "image"  [1,3,H,W] BGR 0..255   -> output "probability" [1,1,H,W]
  Recognizer.onnx  input "image"  [1,3,48,W] BGR 0..255  -> outputs "indices" and "scores", [1,W/8]

Pixel normalisation is folded into the graphs, so the reader feeds raw bytes.

Usage: convert.py DETECTOR.onnx RECOGNIZER.onnx KEYS.txt OUTPUT_DIR
"""
import json
import os
import sys

import numpy as np
import onnx
from onnx import helper, numpy_helper, TensorProto


def constant_values(graph):
    values = {}
    for node in graph.node:
        if node.op_type == "Constant":
            values[node.output[0]] = numpy_helper.to_array(node.attribute[0].t)
    for init in graph.initializer:
        values[init.name] = numpy_helper.to_array(init)
    return values


def drop_unused(graph):
    """Removes nodes whose outputs nobody reads, repeatedly."""
    while True:
        wanted = {o.name for o in graph.output}
        for node in graph.node:
            wanted.update(node.input)
        dead = [n for n in graph.node if not any(o in wanted for o in n.output)]
        if not dead:
            break
        for node in dead:
            graph.node.remove(node)
    used = set()
    for node in graph.node:
        used.update(node.input)
    for init in list(graph.initializer):
        if init.name not in used:
            graph.initializer.remove(init)


def normalise_input(graph, scale, bias, old_input):
    """Adds a new input "image" of raw 0..255 BGR that is scaled and shifted into the old input."""
    scale_name, bias_name, scaled = "image_scale", "image_bias", "image_scaled"
    graph.initializer.append(numpy_helper.from_array(
        np.asarray(scale, np.float32).reshape(1, 3, 1, 1), scale_name))
    graph.initializer.append(numpy_helper.from_array(
        np.asarray(bias, np.float32).reshape(1, 3, 1, 1), bias_name))
    nodes = [helper.make_node("Mul", ["image", scale_name], [scaled], name="image_scale_node"),
             helper.make_node("Add", [scaled, bias_name], [old_input.name], name="image_bias_node")]
    for i, node in enumerate(nodes):
        graph.node.insert(i, node)
    dims = [d.dim_value if d.dim_value > 0 else d.dim_param for d in old_input.type.tensor_type.shape.dim]
    dims[0] = 1
    new_input = helper.make_tensor_value_info("image", TensorProto.FLOAT, dims)
    graph.input.remove(old_input)
    graph.input.insert(0, new_input)


def rename_output(graph, old, new):
    for node in graph.node:
        node.output[:] = [new if o == old else o for o in node.output]
        node.input[:] = [new if i == old else i for i in node.input]
    for output in graph.output:
        if output.name == old:
            output.name = new


def layer_norm_width(graph, mean_node, values):
    """The channel count C of the LayerNorm a mean belongs to: the size of the diagonal scale
    matrix that follows it."""
    consumers = {}
    for node in graph.node:
        for name in node.input:
            consumers.setdefault(name, []).append(node)
    frontier, seen = list(mean_node.output), set()
    for _ in range(8):
        following = []
        for name in frontier:
            for node in consumers.get(name, []):
                if node.op_type == "MatMul" and node.input[1].endswith("_diagonal"):
                    return values[node.input[1]].shape[0]
                if id(node) not in seen:
                    seen.add(id(node))
                    following.extend(node.output)
        frontier = following
    raise ValueError("mean %s belongs to no LayerNorm" % mean_node.name)


# --- Speed: in OpenCV 4.6 every node is a separate pass over memory, and a 5x5 depthwise
# convolution takes a slow general path (about a tenth of the speed per tap of the 3x3 one). These
# rewrites keep the arithmetic (up to float rounding) and give OpenCV the forms it is fast at.
# (A HardSwish node is no help: OpenCV runs it unvectorised, slower than the five nodes it replaces.)

def scalar_operand(node, values):
    """For a Mul or Add by a one-element constant: (the other input, the constant), else None."""
    if node.op_type not in ("Mul", "Add") or len(node.input) != 2:
        return None
    for k in (0, 1):
        constant = values.get(node.input[k])
        if constant is not None and constant.size == 1 and node.input[1 - k] not in values:
            return node.input[1 - k], float(constant.reshape(-1)[0])
    return None


def consumers_of(graph):
    consumers = {}
    for node in graph.node:
        for name in node.input:
            consumers.setdefault(name, []).append(node)
    return consumers


class Weights:
    """New initializers under unique names, so that a constant read elsewhere never changes."""
    def __init__(self, graph):
        self.graph, self.count = graph, 0

    def add(self, array, stem):
        self.count += 1
        name = "%s_folded_%d" % (stem, self.count)
        self.graph.initializer.append(numpy_helper.from_array(np.asarray(array, np.float32), name))
        return name


def conv_parts(conv, values):
    weights = values[conv.input[1]]
    bias = values[conv.input[2]] if len(conv.input) > 2 and conv.input[2] else np.zeros(weights.shape[0], np.float32)
    return weights, bias


def fold_scaling_after_convolutions(graph, weights_store):
    """conv(x) * s + b becomes one convolution with scaled weights and bias."""
    outputs = {o.name for o in graph.output}
    changed = True
    while changed:
        changed = False
        values, consumers = constant_values(graph), consumers_of(graph)
        producers = {o: n for n in graph.node for o in n.output}
        for node in list(graph.node):
            operand = scalar_operand(node, values)
            if operand is None:
                continue
            source, constant = operand
            conv = producers.get(source)
            if conv is None or conv.op_type != "Conv" or len(consumers.get(source, [])) != 1 or source in outputs:
                continue
            w, b = conv_parts(conv, values)
            if node.op_type == "Mul":
                w, b = w * constant, b * constant
            else:
                b = b + constant
            conv.input[1:] = [weights_store.add(w, conv.name + "_w"), weights_store.add(b, conv.name + "_b")]
            conv.output[0] = node.output[0]
            graph.node.remove(node)
            changed = True
            break


def unpadded(conv):
    pads = [helper.get_attribute_value(a) for a in conv.attribute if a.name == "pads"]
    return not pads or not any(pads[0])


def fold_scaling_before_convolutions(graph, weights_store):
    """x * s + b read only by unpadded convolutions moves into their weights and bias (with zero
    padding the border would see 0 instead of b, so padded ones are left alone)."""
    outputs = {o.name for o in graph.output}
    changed = True
    while changed:
        changed = False
        values, consumers = constant_values(graph), consumers_of(graph)
        for node in list(graph.node):
            operand = scalar_operand(node, values)
            readers = consumers.get(node.output[0], [])
            if operand is None or not readers or node.output[0] in outputs or not all(
                    r.op_type == "Conv" and r.input[0] == node.output[0] and unpadded(r) for r in readers):
                continue
            source, constant = operand
            for conv in readers:
                w, b = conv_parts(conv, values)
                if node.op_type == "Mul":
                    w = w * constant
                else:
                    b = b + constant * w.sum(axis=(1, 2, 3))
                conv.input[:] = [source, weights_store.add(w, conv.name + "_w"), weights_store.add(b, conv.name + "_b")]
            graph.node.remove(node)
            changed = True
            break


def split_depthwise_5x5(graph, weights_store):
    """A 5x5 depthwise convolution becomes the sum of four 3x3 ones over the kernel's corners
    (overlapping taps are counted once), each with the padding that shifts it into place."""
    values = constant_values(graph)
    blocks = [(0, 0), (0, 2), (2, 0), (2, 2)]
    for conv in list(graph.node):
        if conv.op_type != "Conv":
            continue
        attrs = {a.name: helper.get_attribute_value(a) for a in conv.attribute}
        w, b = conv_parts(conv, values)
        if list(attrs.get("kernel_shape", [])) != [5, 5] or w.shape[1] != 1 or attrs.get("group", 1) != w.shape[0] \
                or list(attrs.get("pads", [])) != [2, 2, 2, 2] or list(attrs.get("dilations", [1, 1])) != [1, 1]:
            continue
        taken = np.zeros((5, 5), bool)
        parts = []
        for n, (oy, ox) in enumerate(blocks):
            kernel = np.zeros((w.shape[0], 1, 3, 3), np.float32)
            for i in range(3):
                for j in range(3):
                    if not taken[oy + i, ox + j]:
                        taken[oy + i, ox + j] = True
                        kernel[:, :, i, j] = w[:, :, oy + i, ox + j]
            inputs = [conv.input[0], weights_store.add(kernel, conv.name + "_corner")]
            if n == 0:
                inputs.append(weights_store.add(b, conv.name + "_b"))
            part = "%s_corner_%d" % (conv.output[0], n)
            parts.append(helper.make_node(
                "Conv", inputs, [part], name=part, group=attrs["group"], kernel_shape=[3, 3],
                strides=list(attrs.get("strides", [1, 1])), pads=[2 - oy, 2 - ox, oy, ox]))
        sums, total = [], parts[0].output[0]
        for n, part in enumerate(parts[1:], 1):
            out = conv.output[0] if n == len(parts) - 1 else "%s_sum_%d" % (conv.output[0], n)
            sums.append(helper.make_node("Add", [total, part.output[0]], [out], name=out))
            total = out
        at = list(graph.node).index(conv)
        graph.node.remove(conv)
        for k, extra in enumerate(parts + sums):
            graph.node.insert(at + k, extra)


def speed_up(graph):
    weights_store = Weights(graph)
    fold_scaling_after_convolutions(graph, weights_store)
    fold_scaling_before_convolutions(graph, weights_store)
    split_depthwise_5x5(graph, weights_store)
    drop_unused(graph)


def convert_detector(path, out_path):
    model = onnx.load(path)
    graph = model.graph
    values = constant_values(graph)
    # OpenCV 4.6 reads Clip bounds from attributes only.
    for node in graph.node:
        if node.op_type == "Clip" and len(node.input) > 1:
            bounds = [float(values[name]) if name else None for name in list(node.input[1:]) + [""]][:2]
            del node.input[1:]
            if bounds[0] is not None:
                node.attribute.append(helper.make_attribute("min", bounds[0]))
            if bounds[1] is not None:
                node.attribute.append(helper.make_attribute("max", bounds[1]))
    # PaddleOCR's detector normalises with ImageNet statistics on BGR channel order.
    mean = np.array([0.485, 0.456, 0.406])
    std = np.array([0.229, 0.224, 0.225])
    normalise_input(graph, 1.0 / (255.0 * std), -mean / std, graph.input[0])
    rename_output(graph, graph.output[0].name, "probability")
    # With the tile size declared, OpenCV knows the shapes when it loads the model and runs the
    # channel attention's [1,C,H,W] x [1,C,1,1] products as per-channel scaling rather than as
    # general broadcasting; smaller tiles still run.
    graph.input[0].type.tensor_type.shape.dim[2].dim_value = 1024
    graph.input[0].type.tensor_type.shape.dim[3].dim_value = 1024
    drop_unused(graph)
    speed_up(graph)
    onnx.save(model, out_path)


def classify_steps_by_convolution(graph):
    """The last layer (per time step: a linear map from C features to 6,625 classes, then a
    softmax) is run by OpenCV as a matrix-vector product per step, which reads the 3 MB of weights
    once for every step. As a 1x1 convolution over the [1,C,1,T] features before the Squeeze it is
    one matrix product. Then the best class per step comes out as "indices" and its probability as
    "scores", both [1,T], for greedy CTC."""
    values = constant_values(graph)
    producers = {o: n for n in graph.node for o in n.output}
    softmax = producers[graph.output[0].name]
    add = producers[softmax.input[0]]
    matmul = producers[add.input[0]]
    transpose = producers[matmul.input[0]]
    squeeze = producers[transpose.input[0]]
    if (softmax.op_type, add.op_type, matmul.op_type, transpose.op_type, squeeze.op_type) != \
            ("Softmax", "Add", "MatMul", "Transpose", "Squeeze"):
        raise ValueError("unexpected classifier")
    weights, bias = values[matmul.input[1]], values[add.input[1]]
    graph.initializer.extend([
        numpy_helper.from_array(weights.T[:, :, None, None].astype(np.float32), "classes_weights"),
        numpy_helper.from_array(bias.astype(np.float32), "classes_bias"),
        numpy_helper.from_array(np.asarray([0, -1], np.int64), "steps_shape"),
    ])
    graph.node.extend([
        helper.make_node("Conv", [squeeze.input[0], "classes_weights", "classes_bias"], ["classes"],
                         kernel_shape=[1, 1], name="classes"),
        helper.make_node("Softmax", ["classes"], ["probabilities"], axis=1, name="probabilities"),
        helper.make_node("ArgMax", ["probabilities"], ["indices_steps"], axis=1, keepdims=0, name="indices_steps"),
        helper.make_node("Reshape", ["indices_steps", "steps_shape"], ["indices"], name="indices_node"),
        # ReduceMax would fix the width when loaded; a global max pool over a [1,T,K,1] view doesn't.
        helper.make_node("Transpose", ["probabilities"], ["scores_view"], perm=[0, 3, 1, 2], name="scores_view"),
        helper.make_node("GlobalMaxPool", ["scores_view"], ["scores_pooled"], name="scores_pooled"),
        helper.make_node("Reshape", ["scores_pooled", "steps_shape"], ["scores"], name="scores_node"),
    ])
    del graph.output[:]
    graph.output.extend([
        helper.make_tensor_value_info("indices", TensorProto.INT64, [1, "steps"]),
        helper.make_tensor_value_info("scores", TensorProto.FLOAT, [1, "steps"]),
    ])
    drop_unused(graph)


def convert_recognizer(path, out_path):
    model = onnx.load(path)
    graph = model.graph
    classify_steps_by_convolution(graph)
    values = constant_values(graph)
    producers = {o: n for n in graph.node for o in n.output}

    def shape_entries(name):
        """The entries of a Reshape target built from constants and Shape slices, with -1 for a
        slice of the input's shape (there is exactly one such entry in each of them)."""
        node = producers.get(name)
        if node is None:
            return [int(v) for v in np.atleast_1d(values[name])]
        if node.op_type == "Cast":
            return shape_entries(node.input[0])
        if node.op_type == "Concat":
            return [v for i in node.input for v in shape_entries(i)]
        if node.op_type == "Constant":
            return [int(v) for v in np.atleast_1d(values[name])]
        if node.op_type == "Slice":
            source = producers.get(node.input[0])
            while source is not None and source.op_type == "Cast":
                source = producers.get(source.input[0])
            if source is not None and source.op_type == "Shape":
                attrs = {a.name: helper.get_attribute_value(a) for a in node.attribute}
                count = attrs["ends"][0] - attrs["starts"][0]
                # A prefix of the shape is copied (0); an inner dimension is inferred (-1).
                return [0] * count if attrs["starts"][0] == 0 else [-1]
        raise ValueError("unexpected shape producer %s for %s" % (node.op_type, name))

    for node in graph.node:
        if node.op_type == "Reshape" and node.input[1] in producers:
            entries = shape_entries(node.input[1])
            if entries.count(-1) > 1:
                raise ValueError("reshape %s keeps two unknown dimensions" % node.name)
            target = node.output[0] + "_shape"
            graph.initializer.append(numpy_helper.from_array(np.asarray(entries, np.int64), target))
            node.input[1] = target

    # OpenCV 4.6 can't multiply a [1,T,C] tensor by a 1-D constant (the LayerNorm scale), but it
    # runs a MatMul by a constant followed by a 1-D Add, which is what the linear layers use. So the
    # scale becomes a diagonal matrix, and the width stays free.
    values = constant_values(graph)
    for node in graph.node:
        if node.op_type != "Div" or producers.get(node.input[1]) is None \
                or producers[node.input[1]].op_type != "Sqrt":
            continue
        for scale_node in [n for n in graph.node if node.output[0] in n.input and n.op_type == "Mul"]:
            other = [i for i in scale_node.input if i != node.output[0]][0]
            scale = values.get(other)
            if scale is None or scale.ndim != 1 or scale.size < 2:
                continue
            diagonal = other + "_diagonal"
            graph.initializer.append(numpy_helper.from_array(np.diag(scale).astype(np.float32), diagonal))
            scale_node.op_type = "MatMul"
            scale_node.input[:] = [node.output[0], diagonal]

    # OpenCV turns a Squeeze into a Reshape of the load-time shape. The attention's split of
    # [N,T,3,H,D] into q, k and v (Transpose, Slice, Squeeze) becomes a Slice on the "3" axis, a
    # Reshape that keeps N and infers T, and a Transpose, none of which fix T.
    producers = {o: n for n in graph.node for o in n.output}
    def attribute(node, name):
        return next(helper.get_attribute_value(a) for a in node.attribute if a.name == name)
    for node in list(graph.node):
        if node.op_type != "Squeeze":
            continue
        axes = list(attribute(node, "axes"))
        sliced = producers.get(node.input[0])
        if axes == [2]:  # [N,C,1,T] -> [N,C,T]
            shape = node.output[0] + "_shape"
            graph.initializer.append(numpy_helper.from_array(np.asarray([0, 0, -1], np.int64), shape))
            node.op_type = "Reshape"
            del node.attribute[:]
            node.input[:] = [node.input[0], shape]
            continue
        transpose = producers.get(sliced.input[0]) if sliced is not None else None
        if axes != [0] or sliced.op_type != "Slice" or transpose is None or transpose.op_type != "Transpose" \
                or list(attribute(transpose, "perm")) != [2, 0, 3, 1, 4]:
            raise ValueError("unexpected squeeze %s" % node.name)
        split = producers[transpose.input[0]]
        heads, depth = [int(v) for v in numpy_helper.to_array(
            next(i for i in graph.initializer if i.name == split.input[1]))[3:5]]
        start = list(attribute(sliced, "starts"))[0]
        stem = node.output[0]
        shape = stem + "_shape"
        graph.initializer.append(numpy_helper.from_array(np.asarray([0, -1, heads, depth], np.int64), shape))
        replacement = [
            helper.make_node("Slice", [transpose.input[0]], [stem + "_part"], axes=[2], starts=[start],
                             ends=[start + 1], name=stem + "_part"),
            helper.make_node("Reshape", [stem + "_part", shape], [stem + "_heads"], name=stem + "_heads"),
            helper.make_node("Transpose", [stem + "_heads"], [node.output[0]], perm=[0, 2, 1, 3], name=stem),
        ]
        at = list(graph.node).index(node)
        graph.node.remove(node)
        for k, extra in enumerate(replacement):
            graph.node.insert(at + k, extra)

    # OpenCV fixes the shape of a ReduceMean when it loads the model; a MatMul by a column of 1/C
    # takes the same mean over the last axis at any width.
    values = constant_values(graph)
    for node in graph.node:
        if node.op_type != "ReduceMean":
            continue
        attrs = {a.name: helper.get_attribute_value(a) for a in node.attribute}
        if list(attrs.get("axes", [])) != [-1] or attrs.get("keepdims", 1) != 1:
            raise ValueError("unexpected mean %s" % node.name)
        width = layer_norm_width(graph, node, values)
        column = node.output[0] + "_column"
        graph.initializer.append(numpy_helper.from_array(np.full((width, 1), 1.0 / width, np.float32), column))
        node.op_type = "MatMul"
        del node.attribute[:]
        node.input[:] = [node.input[0], column]

    # Nor can it add a 1-D constant to a [1,T,C] tensor (the biases). A bias that follows a MatMul
    # by a constant moves into that MatMul: x W + b = [x, 1] [W; b], where the column of ones is
    # computed from x so that it follows the width.
    values = constant_values(graph)
    producers = {o: n for n in graph.node for o in n.output}
    position = {id(n): k for k, n in enumerate(graph.node)}
    additions = []
    for node in graph.node:
        if node.op_type != "Add":
            continue
        biases = [i for i in node.input if i in values and values[i].ndim == 1 and values[i].size > 1]
        if len(biases) != 1:
            continue
        source = [i for i in node.input if i != biases[0]][0]
        matmul = producers.get(source)
        if matmul is None or matmul.op_type != "MatMul" or matmul.input[1] not in values:
            raise ValueError("bias %s does not follow a linear layer" % node.name)
        additions.append((node, matmul, values[biases[0]], values[matmul.input[1]]))
    for node, matmul, bias, weights in additions:
        x = matmul.input[0]
        stem = node.output[0]
        graph.initializer.extend([
            numpy_helper.from_array(np.zeros((weights.shape[0], 1), np.float32), stem + "_zero"),
            numpy_helper.from_array(np.asarray(1.0, np.float32), stem + "_one"),
            numpy_helper.from_array(np.vstack([weights, bias[None, :]]).astype(np.float32), stem + "_weights"),
        ])
        extra = [
            helper.make_node("MatMul", [x, stem + "_zero"], [stem + "_nought"], name=stem + "_nought"),
            helper.make_node("Add", [stem + "_nought", stem + "_one"], [stem + "_ones"], name=stem + "_ones"),
            helper.make_node("Concat", [x, stem + "_ones"], [stem + "_augmented"], axis=-1, name=stem + "_augmented"),
        ]
        at = list(graph.node).index(matmul)
        for k, extra_node in enumerate(extra):
            graph.node.insert(at + k, extra_node)
        matmul.input[:] = [stem + "_augmented", stem + "_weights"]
        node.op_type = "Identity"
        node.input[:] = [matmul.output[0]]

    # The recogniser's input is normalised as (x / 255 - 0.5) / 0.5. OpenCV infers the layer shapes
    # at load time from the declared input, so the width is declared; other widths still run.
    normalise_input(graph, [2.0 / 255.0] * 3, [-1.0] * 3, graph.input[0])
    graph.input[0].type.tensor_type.shape.dim[3].dim_value = 320

    drop_unused(graph)
    speed_up(graph)
    onnx.save(model, out_path)


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
    detector, recognizer, keys, out = sys.argv[1:]
    os.makedirs(out, exist_ok=True)
    convert_detector(detector, os.path.join(out, "Detector.onnx"))
    convert_recognizer(recognizer, os.path.join(out, "Recognizer.onnx"))
    write_characters(keys, os.path.join(out, "characters.json"))


if __name__ == "__main__":
    main()
