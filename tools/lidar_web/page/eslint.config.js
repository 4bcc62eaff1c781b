// Type-checked rules: a promise that nobody waits for and a condition that is always true are
// mistakes that the compiler lets pass.
import { dirname } from "node:path";
import { fileURLToPath } from "node:url";
import tseslint from "typescript-eslint";

export default tseslint.config(
  { ignores: ["out", "node_modules"] },
  {
    files: ["**/*.ts"],
    extends: [tseslint.configs.strictTypeChecked, tseslint.configs.stylisticTypeChecked],
    languageOptions: {
      parserOptions: {
        project: "./tsconfig.json",
        tsconfigRootDir: dirname(fileURLToPath(import.meta.url)),
      },
    },
    rules: {
      eqeqeq: "error",
      "max-lines": ["error", 500],
      "max-lines-per-function": ["error", 60],
    },
  },
);
