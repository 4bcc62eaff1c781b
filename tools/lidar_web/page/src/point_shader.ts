// The points' shader: a range times its pixel's direction, and a colour by one of its values.

import { kFlagCategories } from "./colours.js";

/** Colourings as the shader numbers them. */
export const kShaderColouring = {
  range: 0,
  reflectivity: 1,
  height: 2,
  echo: 3,
  ground: 4,
  flags: 5,
};

const kFlagTests = kFlagCategories
  .map(
    (entry, i) =>
      `    else if (((bits >> ${String(entry.bit)}) & 1) == 1) colour = palette[${String(i + 1)}];`,
  )
  .join("\n");

/** `position` is the pixel's unit direction, so that three takes it for the points' places. */
export const kVertexShader = `
in float range;
in float reflectivity;
in float flags;
uniform float unitMetres;
uniform vec3 offset;
uniform vec2 rangeLimits;
uniform vec2 reflectivityLimits;
uniform vec2 scale;
uniform float pointSize;
uniform int colouring;
uniform int echo;
uniform sampler2D ramp;
uniform vec3 palette[${String(kFlagCategories.length + 1)}];
out vec3 pointColour;

vec3 rampColour(float value) {
  float share = clamp((value - scale.x) / (scale.y - scale.x), 0.0, 1.0);
  return texelFetch(ramp, ivec2(int(floor(share * 255.0 + 0.5)), 0), 0).rgb;
}

void main() {
  float metres = range * unitMetres;
  bool shown = range > 0.0 && dot(position, position) > 0.5 &&
    metres >= rangeLimits.x && metres <= rangeLimits.y &&
    reflectivity >= reflectivityLimits.x && reflectivity <= reflectivityLimits.y;
  if (!shown) {
    // Outside of the view, where nothing is drawn.
    gl_Position = vec4(2.0, 2.0, 2.0, 1.0);
    gl_PointSize = 1.0;
    pointColour = vec3(0.0);
    return;
  }
  vec3 place = offset + metres * position;
  gl_Position = projectionMatrix * modelViewMatrix * vec4(place, 1.0);
  gl_PointSize = pointSize;
  int bits = int(flags + 0.5);
  vec3 colour = palette[0];
  if (colouring == ${String(kShaderColouring.range)}) colour = rampColour(metres);
  else if (colouring == ${String(kShaderColouring.reflectivity)}) colour = rampColour(reflectivity);
  else if (colouring == ${String(kShaderColouring.height)}) colour = rampColour(place.z);
  else if (colouring == ${String(kShaderColouring.echo)}) colour = palette[echo];
  else if (colouring == ${String(kShaderColouring.ground)}) colour = palette[(bits >> 6) & 1];
  else {
    if (bits == 0) colour = palette[0];
${kFlagTests}
  }
  pointColour = colour;
}
`;

export const kFragmentShader = `
in vec3 pointColour;
out vec4 fragment;
void main() { fragment = vec4(pointColour, 1.0); }
`;
