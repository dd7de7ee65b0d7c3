// Alarm sounds, one at a time: the pattern of the highest-priority sounding alarm repeats until
// it changes. High: two bursts of pulses (3 + 2) every 5 s; medium: 3 pulses every 8 s; low: 2
// pulses every 16 s. Pitch falls with priority so the three are told apart without looking.
const PATTERNS = {
  high: { freq: 880, pulses: [0, 0.2, 0.4, 1.0, 1.2], pulse: 0.15, every: 5 },
  medium: { freq: 660, pulses: [0, 0.25, 0.5], pulse: 0.2, every: 8 },
  low: { freq: 523, pulses: [0, 0.35], pulse: 0.25, every: 16 },
};

export class AlarmSound {
  constructor() {
    this.ctx = null;
    this.current = null; // priority playing
    this.nextAt = 0;
    this.timer = null;
  }

  // Browsers start audio only after a user gesture; until then the page says sound is off.
  get enabled() {
    return this.ctx?.state === "running";
  }

  enable() {
    if (!this.ctx) {
      const AC = globalThis.AudioContext ?? globalThis.webkitAudioContext;
      if (!AC) return false;
      this.ctx = new AC();
    }
    if (this.ctx.state === "suspended") this.ctx.resume();
    return true;
  }

  // Called whenever the sounding alarm may have changed (priority or null for silence).
  play(priority) {
    if (priority === this.current) return;
    this.current = priority;
    clearTimeout(this.timer);
    this.timer = null;
    if (priority) this.loop();
  }

  loop() {
    const pat = PATTERNS[this.current];
    if (!pat) return;
    if (this.enabled) this.burst(pat);
    this.timer = setTimeout(() => this.loop(), pat.every * 1000);
  }

  burst(pat) {
    const ctx = this.ctx;
    const t0 = ctx.currentTime + 0.02;
    for (const start of pat.pulses) {
      const osc = ctx.createOscillator();
      const gain = ctx.createGain();
      osc.type = "triangle";
      osc.frequency.value = pat.freq;
      gain.gain.setValueAtTime(0, t0 + start);
      gain.gain.linearRampToValueAtTime(0.25, t0 + start + 0.02);
      gain.gain.setValueAtTime(0.25, t0 + start + pat.pulse - 0.03);
      gain.gain.linearRampToValueAtTime(0, t0 + start + pat.pulse);
      osc.connect(gain).connect(ctx.destination);
      osc.start(t0 + start);
      osc.stop(t0 + start + pat.pulse + 0.01);
    }
  }
}
