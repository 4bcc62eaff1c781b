// Entry. The page can be asked about what it shows, from the console and by tests.

import { App } from "./app.js";

declare global {
  interface Window {
    lidarPage?: App;
  }
}

window.lidarPage = new App();
