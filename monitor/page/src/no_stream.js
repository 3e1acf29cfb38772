export class Duplex {}
