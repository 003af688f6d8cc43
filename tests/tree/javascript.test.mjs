// One style in all JavaScript, as the compiler reads it.

import assert from "node:assert/strict";
import { test } from "node:test";

import ts from "typescript";

import { filesOfTree, read } from "./lib/tree.mjs";

const files = filesOfTree("*.js", "*.mjs");
const sources = files.map((file) => ts.createSourceFile(file, read(file), ts.ScriptTarget.ESNext, true, ts.ScriptKind.JS));

/** The places "file:line" of the nodes for which `isWrong` holds. */
function placesOf(isWrong) {
  const found = [];
  const visit = (node, source) => {
    if (isWrong(node)) found.push(`${source.fileName}:${source.getLineAndCharacterOfPosition(node.getStart()).line + 1}`);
    ts.forEachChild(node, (child) => visit(child, source));
  };
  for (const source of sources) visit(source, source);
  return found;
}

const isOperation = (node, ...operators) => ts.isBinaryExpression(node) && operators.includes(node.operatorToken.kind);

/** Numbers and texts, and lists and objects of nothing else. */
function isFixed(node) {
  if (ts.isNumericLiteral(node) || ts.isStringLiteralLike(node)) return true;
  if (ts.isArrayLiteralExpression(node)) return node.elements.length > 0 && node.elements.every(isFixed);
  if (!ts.isObjectLiteralExpression(node) || node.properties.length === 0) return false;
  return node.properties.every((property) => ts.isPropertyAssignment(property) && isFixed(property.initializer));
}

test("What a module holds of fixed data is named in UPPER_CASE", () => {
  const isOfModule = (node) => ts.isVariableDeclaration(node) && (node.parent.flags & ts.NodeFlags.Const) && ts.isSourceFile(node.parent.parent.parent);
  const isNamed = ({ name }) => !ts.isIdentifier(name) || /^[A-Z][A-Z0-9_]*$/.test(name.text);
  assert.deepEqual(placesOf((node) => isOfModule(node) && node.initializer && isFixed(node.initializer) && !isNamed(node)), []);
});

test("What is compared is compared with its type: null and undefined by === alone", () => {
  const { EqualsEqualsToken, ExclamationEqualsToken } = ts.SyntaxKind;
  assert.deepEqual(placesOf((node) => isOperation(node, EqualsEqualsToken, ExclamationEqualsToken)), []);
});

test("Texts and values are put together by templates; a plus only breaks a long text", () => {
  const isSum = (node) => isOperation(node, ts.SyntaxKind.PlusToken);
  const isText = (node) => ts.isStringLiteralLike(node) || ts.isTemplateExpression(node) || (isSum(node) && isText(node.left) && isText(node.right));
  assert.deepEqual(placesOf((node) => isSum(node) && isText(node.left) !== isText(node.right)), []);
});
