declare module "*.css" {
  const text: string;
  export default text;
}
declare module "*.txt" {
  const text: string;
  export default text;
}
