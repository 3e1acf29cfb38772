// Who is there: monitor, receiver and camera, and what matters most about the camera.
import { isDetected, model, number, recording, text } from './camera_state.js';
import { byId, setText } from './dom.js';
import { watch } from './state.js';

const links = ['monitor', 'receiver', 'camera'];

export function startPresence() {
    watch((state) => {
        const there = text(state, 'monitor') === 'present';
        for (const link of links) {
            // A monitor that does not answer tells nothing of the others.
            const said = link === 'monitor' || there ? text(state, link) || 'waiting' : 'unknown';
            byId(`link-${link}`).dataset.state = said;
            setText(byId(`said-${link}`), said);
        }
        const live = there && text(state, 'camera') === 'present';
        document.body.classList.toggle('stale', !live);
        const isRecording = live && recording(state) === 'recording';
        document.body.classList.toggle('recording', isRecording);
        setText(byId('headline-model'), text(state, 'camera_model') || 'No camera yet');
        setText(byId('headline-battery'), !isDetected(state) ? '' : `Battery ${text(state, 'battery_level')} %`);
        byId('headline-battery').classList.toggle('low', isDetected(state) && number(state, 'battery_level') <= 20);
        setText(byId('headline-recording'), isRecording ? `REC ${text(state, 'rec_time')}` : '');
        document.title = `${isRecording ? '● ' : ''}${live ? model(state) || 'Camera' : 'No camera'} - receiver-monitor`;
    });
}
